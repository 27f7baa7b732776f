// The building blocks of golden sequences.
#include <scripted/Steps.h>

#include <iterator>
#include <sstream>

namespace SodrelTest {

namespace {

const std::string manager =
   "org.freedesktop.systemd1, /org/freedesktop/systemd1, org.freedesktop.systemd1.Manager";

const std::string callException = "Sodrel::SdbusCallException: Sdbus::";
const std::string messageException = "Sodrel::SdbusMessageException: Sdbus::";

Steps monitorTraced( const std::string& operation, const std::string& text ) {
   return { { "SignalMonitor/8 " + operation + ": " + text } };
}

Steps processed( const Monitor& monitor ) {
   return { { "sd_bus_process( bus1, null )", Failing::reported,
              monitor.waitFailed( "sd_bus_process failed{errno}" ) } };
}

// A call within a signal's callback, which sets the error to `text` when it fails.
Step callbackStep( const Monitor& monitor, const std::string& line, const std::string& text ) {
   return { line,
            Failing::reported,
            monitor.callbackFailed(),
            { std::string( "sd_bus_error_set( error, " ) + failedError + ", " + text + " )",
              monitor.signal + std::string( " callback returns {result}" ) } };
}

Step firstRead( const Monitor& monitor ) {
   const std::string signal = monitor.signal;
   return callbackStep(
      monitor, "sd_bus_message_read( " + signal + ", " + monitor.types + " )",
      "Failed to parse " + signal + " signal." );
}

Steps callbackEnd( const Monitor& monitor ) {
   return { { monitor.signal + std::string( " callback returns 0" ) } };
}

} // namespace

const char* const noBus =
   "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus{errno}";

Steps join( std::initializer_list< Steps > parts ) {
   Steps all;
   for( const Steps& part : parts ) {
      all.insert( all.end(), part.begin(), part.end() );
   }
   return all;
}

std::string logOf( const Steps& steps ) {
   std::string all;
   for( const Step& step : steps ) {
      all += ( all.empty() ? "" : "\n" ) + step.line;
   }
   return all;
}

Steps traced( const std::string& operation, const std::string& text ) {
   return { { "Sodrel/8 " + operation + ": " + text } };
}

Steps probed() {
   return {
      { "sd_bus_get_property_string( bus1, " + manager + ", SystemState, null, value )",
        Failing::renewing, noBus },
      { "free( running )" },
   };
}

Steps stringRead(
   const std::string& object, const char* property, const std::string& exception, const char* bus,
   const std::vector< std::string >& after ) {
   std::vector< std::string > lines{ "sd_bus_error_free( {error} )" };
   lines.insert( lines.end(), after.begin(), after.end() );
   return {
      { std::string( "sd_bus_get_property_string( " ) + bus + ", org.freedesktop.systemd1, " +
           object + ", " + property + ", error, value )",
        Failing::reported, callException + exception + "{message}", lines },
      { "sd_bus_error_free( empty )" },
      { "free( running )" },
   };
}

std::vector< Tessel::String > split( const std::string& words ) {
   std::istringstream stream( words );
   const std::istream_iterator< std::string > begin( stream );
   return { begin, std::istream_iterator< std::string >() };
}

Steps sent( const std::string& words, int reply ) {
   const std::vector< Tessel::String > given = split( words );
   const std::string method = given[0].data();
   std::string types;
   std::string arguments;
   for( std::size_t i = 1; i < given.size(); ++i ) {
      types += 's';
      arguments += std::string( ", " ) + given[i].data();
   }
   const std::string operation = std::string( "asyncManagerCall" ) + ( types.empty()  ? ""
                                                                       : types == "s" ? "SO"
                                                                                      : "SsO" );
   const std::string dropped = "sd_bus_message_unref( message" + std::to_string( reply ) + " )";
   Steps steps = join( {
      traced( operation, "" ),
      probed(),
      {
         { "sd_bus_call_method( bus1, " + manager + ", " + method + ", error, reply, " +
              ( types.empty() ? "''" : types ) + arguments + " )",
           Failing::reported,
           callException + operation + ", sd-bus call " + words + " failed{message}",
           { "sd_bus_error_free( {error} )" } },
         { "sd_bus_error_free( empty )" },
      },
   } );
   if( !types.empty() ) {
      steps.push_back(
         { "sd_bus_message_read( message" + std::to_string( reply ) + ", o )",
           Failing::reported,
           messageException + operation + ", message read failed when calling " + words + "{errno}",
           { dropped } } );
   }
   steps.push_back( { dropped } );
   return steps;
}

Steps begun( const Monitor& monitor ) {
   const std::string name = monitor.name;
   return join( {
      monitorTraced( "handleInitialized", "Initialize " + name + monitor.unit ),
      { { std::string( "sd_bus_match_signal( bus1, slot, org.freedesktop.systemd1, " ) +
             monitor.path + ", " + monitor.interface + ", " + monitor.signal +
             ", callback, userdata )",
          Failing::reported,
          "Sodrel::SdbusSyncException: " + name + "::handleInitialized, failed to register " +
             monitor.signal + " monitor" + monitor.unit + "{errno}",
          { "slabFree( Sodrel::" + name + "::CallbackData )",
            "slabFree( Sodrel::" + name + " )" } } },
   } );
}

Steps ended( const Monitor& monitor ) {
   const std::string name = monitor.name;
   return join( {
      monitorTraced( "handleDeleted", "Deinitialize " + name + monitor.unit ),
      {
         { "sd_bus_slot_unref( slot1 )" },
         { "slabFree( Sodrel::" + name + "::CallbackData )" },
         { "slabFree( Sodrel::" + name + " )" },
      },
   } );
}

Steps waited( const Monitor& monitor, std::initializer_list< Steps > passes ) {
   const std::string object = monitor.object ? std::string( " of " ) + monitor.object : "";
   const Steps clock{ { "steady_clock::now()" } };
   const Steps rest{ { "sd_bus_wait( bus1, 600000001 )", Failing::reported,
                       monitor.waitFailed( "sd_bus_wait failed{errno}" ) } };
   Steps all = join( {
      monitorTraced( "wait", std::string( "Wait for " ) + monitor.signal + " signal" + object ),
      clock,
   } );
   for( const Steps& pass : passes ) {
      const bool first = &pass == passes.begin();
      all = join(
         { all, first ? Steps() : rest, processed( monitor ), pass, processed( monitor ), clock } );
   }
   return all;
}

Steps signalRead( const Monitor& monitor ) {
   return join( { { firstRead( monitor ) }, callbackEnd( monitor ) } );
}

Steps changeRead( std::initializer_list< std::string > properties ) {
   const Monitor& monitor = unitReloadingMonitor;
   const auto step = [&]( const std::string& function, const char* arguments, const char* text ) {
      return callbackStep(
         monitor, "sd_bus_message_" + function + "( PropertiesChanged" + arguments + " )", text );
   };
   const auto ignored = [&]( const std::string& function, const std::string& nextFailure ) {
      return Step{ "sd_bus_message_" + function + " )", Failing::ignored, nextFailure };
   };
   const Step entered =
      step( "enter_container", ", e, sv", "Failed to parse an entity with changed properties." );
   Steps steps{
      firstRead( monitor ),
      step( "enter_container", ", a, {sv}", "Failed to enter an array of changed properties." ),
   };
   for( const std::string& property : properties ) {
      steps.push_back( entered );
      steps.push_back( step( "read", ", s", "Failed to parse name of changed property." ) );
      steps.push_back(
         property == "ActiveState"
            ? step( "read", ", v, s", "Failed to parse value of ActiveState property." )
            : ignored( "skip( PropertiesChanged, v", monitor.callbackFailed() ) );
      steps.push_back( ignored( "exit_container( PropertiesChanged", monitor.callbackFailed() ) );
   }
   steps.push_back( entered );
   // The last step of its signal: the next failure is that of the processing.
   steps.push_back(
      ignored( "exit_container( PropertiesChanged", processed( monitor ).front().exception ) );
   return join( { steps, callbackEnd( monitor ) } );
}

} // namespace SodrelTest
