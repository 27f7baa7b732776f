// The operations of the library with their golden sequences.
#include <scripted/Operations.h>

#include <support/Memory.h>

#include <type_traits>

namespace SodrelTest {

namespace {

// Created in advance, so that only the library allocates.
const Tessel::String foo( "foo.service" );
const Tessel::String version( "Version" );
const Tessel::String confirmSpawn( "ConfirmSpawn" );
const Tessel::String activeStateName( "ActiveState" );
const Tessel::String text( "What the caller did" );

Tessel::String shown( bool value ) {
   return value ? "true" : "false";
}

sd_bus_message* newReply( Content ( *content )() ) {
   const UnwatchedMemory unwatched;
   return scriptedSdbus().newReply( content() );
}

// Signals in successive passes.
void passes( std::initializer_list< Signal > signals ) {
   for( const Signal& signal : signals ) {
      scriptedSdbus().next( "sd_bus_process", dispatches( { signal } ) );
      scriptedSdbus().next( "sd_bus_process", {} );
   }
}

void jobIsDone() {
   passes( { jobRemoved( 41, "failed" ), jobRemoved( 42, "done" ) } );
}

void jobFails() {
   passes( { jobRemoved( 41, "done" ), jobRemoved( 42, "failed" ) } );
}

void managerReloads() {
   passes( { reloading( true ), reloading( false ) } );
}

// The first start is not seen.
void managerReloadsAgain() {
   passes( { reloading( false ) } );
   managerReloads();
}

void unitReloads() {
   const Content running = property( "SubState", variant( "s", s( "running" ) ) );
   passes( { unitBecomes( "reloading" ),
             unitChanged( properties( { running, activeState( "active" ) } ) ) } );
}

void secondWaitSucceeds() {
   unluckyWaits = { false, true };
   for( const char* const job : { "43", "44" } ) {
      scriptedSdbus().next(
         "sd_bus_call_method",
         replies( o( std::string( "/org/freedesktop/systemd1/job/" ) + job ) ) );
   }
}

void secondWaitForTheUnitSucceeds() {
   scriptedSdbus().next( "sd_bus_call_method", replies( o( fooPath ) ) );
   secondWaitSucceeds();
}

// The wait of an unlucky monitor.
Steps unluckyWait( const char* number ) {
   return { { std::string( "wait( /org/freedesktop/systemd1/job/" ) + number + " )" } };
}

const char* const suffixes[] = { "", "SO", "SsO" };

// The three calls with their arguments. Each is named after the operation and what is special about
// it.
Operation asyncManagerCall( const std::string& words, const char* result ) {
   const std::vector< Tessel::String > given = split( words );
   return { std::string( "asyncManagerCall" ) + suffixes[given.size() - 1],
            [given]( Sdbus& client ) -> Tessel::String {
               if( given.size() == 1 ) {
                  client.asyncManagerCall( given[0] );
                  return "returned";
               }
               return given.size() == 2
                         ? client.asyncManagerCallSO( given[0], given[1] )
                         : client.asyncManagerCallSsO( given[0], given[1], given[2] );
            },
            result, sent( words ) };
}

Operation managerCall(
   const char* special, const std::string& words, bool async, const char* result,
   const Steps& steps, void ( *prepare )() = nullptr ) {
   const std::vector< Tessel::String > given = split( words );
   const std::string operation = std::string( "managerCall" ) + suffixes[given.size() - 1];
   return { operation + special,
            [given, async]( Sdbus& client ) -> Tessel::String {
               if( given.size() == 1 ) {
                  client.managerCall( given[0], async );
                  return "returned";
               }
               return given.size() == 2
                         ? client.managerCallSO( given[0], given[1], async )
                         : client.managerCallSsO( given[0], given[1], given[2], async );
            },
            result,
            join( { traced(
                       operation, "Call sd-bus systemd manager " + words +
                                     ( async ? ", async=true" : ", async=false" ) ),
                    steps } ),
            prepare };
}

// Everything after the trace of a call that waits.
Steps awaited( const Monitor& monitor, const Steps& steps ) {
   return join( { probed(), begun( monitor ), steps, ended( monitor ) } );
}

Steps jobAwaited( const std::string& words ) {
   const Steps read = signalRead( jobRemovedMonitor );
   return awaited(
      jobRemovedMonitor, join( { sent( words ), waited( jobRemovedMonitor, { read, read } ) } ) );
}

Steps sentTwice( const std::string& words, int firstReply ) {
   return join( { sent( words, firstReply ), unluckyWait( "43" ), sent( words, firstReply + 1 ),
                  unluckyWait( "44" ) } );
}

// A call whose monitor is a unit's.
Steps unitAwaited( const Steps& steps ) {
   return join( {
      probed(),
      sent( "GetUnit foo.service", 1 ),
      begun( unitReloadingMonitor ),
      steps,
      ended( unitReloadingMonitor ),
   } );
}

const std::string managerObject = "/org/freedesktop/systemd1, org.freedesktop.systemd1.Manager";

const Steps messageDropped{ { "sd_bus_message_unref( message1 )" } };

Steps messageRead( const char* type, const std::string& exception ) {
   return join( {
      { { std::string( "sd_bus_message_read( message1, " ) + type + " )",
          Failing::reported,
          "Sodrel::SdbusMessageException: " + exception + "{errno}",
          { "sd_bus_message_unref( message1 )" } } },
      messageDropped,
   } );
}

// The connection of a client whose creation fails stays open, deliberately.
Operation sdbusFactory() {
   const std::string entityGone = "slabFree( Sodrel::Sdbus )";
   return {
      "sdbusFactory",
      []( Sdbus& ) { return shown( static_cast< bool >( Sodrel::sdbusFactory() ) ); },
      "true",
      join( {
         traced( "handleInitialized", "Initialize sd-bus" ),
         traced( "managerPropertyS", "Get SystemState manager property with sd-bus" ),
         {
            { "sd_bus_get_property_string( null, org.freedesktop.systemd1, " + managerObject +
                 ", SystemState, null, value )",
              Failing::ignored, noBus },
            { "sd_bus_open_system( bus )", Failing::reported, noBus, { entityGone } },
         },
         stringRead(
            managerObject, "SystemState",
            "managerPropertyS, manager property SystemState read failed", "bus2", { entityGone } ),
         {
            { "Sodrel/9 handleInitialized: SystemState running" },
            { "Sodrel/8 handleDeleted: Deinitialize sd-bus" },
            { "sd_bus_flush_close_unref( bus2 )" },
            { entityGone },
         },
      } ),
   };
}

Operation managerPropertyB() {
   return {
      "managerPropertyB",
      []( Sdbus& client ) { return shown( client.managerPropertyB( confirmSpawn ) ); },
      "true",
      join( {
         traced( "managerPropertyB", "Get ConfirmSpawn manager property with sd-bus" ),
         probed(),
         {
            { "sd_bus_get_property( bus1, org.freedesktop.systemd1, " + managerObject +
                 ", ConfirmSpawn, error, reply, b )",
              Failing::reported,
              "Sodrel::SdbusCallException: "
              "Sdbus::managerPropertyB, manager property ConfirmSpawn read failed{message}",
              { "sd_bus_error_free( {error} )" } },
            { "sd_bus_error_free( empty )" },
         },
         messageRead(
            "b", "Sdbus::managerPropertyB, message handling failed for property ConfirmSpawn" ),
      } ),
   };
}

std::vector< Operation > makeOperations() {
   const Steps aReloadRead = signalRead( daemonReloadingMonitor );
   return {
      sdbusFactory(),
      { "sdbus", []( Sdbus& client ) { return shown( client.sdbus() != nullptr ); }, "true",
        probed() },
      managerPropertyB(),
      { "managerPropertyS", []( Sdbus& client ) { return client.managerPropertyS( version ); },
        "running",
        join( {
           traced( "managerPropertyS", "Get Version manager property with sd-bus" ),
           probed(),
           stringRead(
              managerObject, "Version", "managerPropertyS, manager property Version read failed" ),
        } ) },
      // The trace names the property before the unit.
      { "unitPropertyS",
        []( Sdbus& client ) { return client.unitPropertyS( foo, activeStateName ); }, "running",
        join( {
           traced( "unitPropertyS", "Get ActiveState property of foo.service with sd-bus" ),
           sent( "GetUnit foo.service" ),
           probed(),
           stringRead(
              std::string( fooPath ) + ", org.freedesktop.systemd1.Unit", "ActiveState",
              "unitPropertyS, read failed for property ActiveState of foo.service" ),
        } ) },

      asyncManagerCall( "Reload", "returned" ),
      asyncManagerCall( "GetUnit foo.service", fooPath ),
      asyncManagerCall( "StartUnit foo.service replace", jobPath ),

      managerCall( "Asynchronous", "Subscribe", true, "returned", sent( "Subscribe" ) ),
      managerCall(
         "", "Reload", false, "returned",
         awaited(
            daemonReloadingMonitor,
            join( { sent( "Reload" ),
                    waited( daemonReloadingMonitor, { aReloadRead, aReloadRead } ) } ) ),
         managerReloads ),
      managerCall(
         "Repeated", "Reload", false, "returned",
         awaited(
            daemonReloadingMonitor,
            join( { sent( "Reload", 1 ), waited( daemonReloadingMonitor, { aReloadRead } ),
                    sent( "Reload", 2 ),
                    waited( daemonReloadingMonitor, { aReloadRead, aReloadRead } ) } ) ),
         managerReloadsAgain ),
      managerCall(
         "Refused", "Subscribe", false,
         "Sodrel::SdbusSyncException: "
         "Sdbus::managerCall, method Subscribe doesn't support sync operations",
         probed() ),

      managerCall(
         "Asynchronous", "GetUnit foo.service", true, fooPath, sent( "GetUnit foo.service" ) ),
      managerCall(
         "", "ReloadUnit foo.service", false, jobPath, jobAwaited( "ReloadUnit foo.service" ),
         jobIsDone ),
      managerCall(
         "Repeated", "Frob foo.service", false, "/org/freedesktop/systemd1/job/44",
         awaited( jobRemovedMonitor, sentTwice( "Frob foo.service", 1 ) ), secondWaitSucceeds ),
      // There is no job to wait for.
      managerCall(
         "OfAUnit", "GetUnit foo.service", false, fooPath,
         awaited(
            jobRemovedMonitor,
            join( { sent( "GetUnit foo.service" ),
                    { { std::string( "SignalMonitor/8 wait: Wait for JobRemoved signal of " ) +
                        fooPath } } } ) ) ),

      managerCall(
         "Asynchronous", "ReloadOrTryRestartUnit foo.service replace", true, jobPath,
         sent( "ReloadOrTryRestartUnit foo.service replace" ) ),
      managerCall(
         "", "StartUnit foo.service replace", false, jobPath,
         jobAwaited( "StartUnit foo.service replace" ), jobIsDone ),
      managerCall(
         "OfAJobThatFails", "StartUnit foo.service replace", false,
         "Sodrel::SdbusJobException: "
         "JobRemovedMonitor::wait, job /org/freedesktop/systemd1/job/42 result: failed",
         jobAwaited( "StartUnit foo.service replace" ), jobFails ),
      managerCall(
         "Repeated", "StartUnit foo.service replace", false, "/org/freedesktop/systemd1/job/44",
         awaited( jobRemovedMonitor, sentTwice( "StartUnit foo.service replace", 1 ) ),
         secondWaitSucceeds ),
      managerCall(
         "ReloadingAUnit", "ReloadUnit foo.service replace", false, jobPath,
         unitAwaited( join(
            { sent( "ReloadUnit foo.service replace", 2 ),
              waited(
                 unitReloadingMonitor, { changeRead( { "ActiveState" } ),
                                         changeRead( { "SubState", "ActiveState" } ) } ) } ) ),
         unitReloads ),
      // The unit is looked up only once.
      managerCall(
         "ReloadingAUnitRepeated", "ReloadOrRestartUnit foo.service replace", false,
         "/org/freedesktop/systemd1/job/44",
         unitAwaited( sentTwice( "ReloadOrRestartUnit foo.service replace", 2 ) ),
         secondWaitForTheUnitSucceeds ),
      managerCall(
         "Refused", "ReloadOrTryRestartUnit foo.service replace", false,
         "Sodrel::SdbusSyncException: Sdbus::managerCallSsO, method ReloadOrTryRestartUnit "
         "doesn't support sync operations",
         probed() ),

      { "handleSdbusMessage",
        []( Sdbus& client ) {
           client.handleSdbusMessage( newReply( [] { return b( true ); } ) );
           return Tessel::String( "returned" );
        },
        "returned", messageDropped },
      { "handleSdbusMessageO",
        []( Sdbus& client ) {
           return client.handleSdbusMessageO( newReply( [] { return o( fooPath ); } ), text );
        },
        fooPath, messageRead( "o", "What the caller did" ) },
      { "handleSdbusMessageB",
        []( Sdbus& client ) {
           return shown( client.handleSdbusMessageB( newReply( [] { return b( true ); } ), text ) );
        },
        "true", messageRead( "b", "What the caller did" ) },
   };
}

} // namespace

const std::vector< Operation >& operations() {
   static const std::vector< Operation > all = makeOperations();
   return all;
}

} // namespace SodrelTest
