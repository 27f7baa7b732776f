// Looking at a real systemd, and disturbing it.
#include "Box.h"

#include <array>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Sodrel::Test {

namespace {

constexpr const char* managerName = "org.freedesktop.systemd1";
constexpr const char* managerPath = "/org/freedesktop/systemd1";
constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";

int checkedFile( int result, const char* what ) {
   return checked( result < 0 ? -errno : result, what );
}

} // namespace

std::string run( const std::string& command ) {
   std::FILE* const pipe = popen( command.c_str(), "re" );
   if( !pipe ) {
      throw std::runtime_error( "cannot run: " + command );
   }
   std::string output;
   std::array< char, 256 > buffer{};
   while( std::fgets( buffer.data(), buffer.size(), pipe ) ) {
      output += buffer.data();
   }
   if( pclose( pipe ) != 0 ) {
      throw std::runtime_error( "failed: " + command );
   }
   if( output.ends_with( '\n' ) ) {
      output.pop_back();
   }
   return output;
}

void killBus() {
   // systemctl 257 reports that the unit it has waited for ended badly; 252 does not. A client may
   // have started the bus anew by then.
   run( "bus=$(systemctl show --property MainPID --value dbus.service)\n"
        "systemctl kill --signal=KILL --wait dbus.service || ! kill -0 $bus" );
   // Else systemd would refuse to start it too often.
   run( "systemctl reset-failed dbus.service" );
}

bool busHasSubscribed() {
   return run( "systemctl show --property ExecStart dbus.service" ).find( "dbus-broker" ) !=
             std::string::npos &&
          std::stoi( run( "dbus-broker --version | tr -dc 0-9" ) ) >= 33;
}

std::string text( const Tessel::String& string ) {
   return std::string( std::string_view( string ) );
}

void limitIs( SignalMonitor& monitor, std::uint64_t nanoseconds ) {
   const Tessel::Interval limit( nanoseconds );
   ASSERT_EQ(
      Tessel::memberOf( monitor, "syncTimeout" ).write( monitor, &limit ), Tessel::accessDone );
}

// Gate

Gate::Gate( std::string fifo ) : path( std::move( fifo ) ) {
   make();
}

void Gate::make() const {
   if( mkfifo( path.c_str(), 0600 ) < 0 && errno != EEXIST ) {
      checkedFile( -1, "mkfifo" );
   }
}

Gate::~Gate() {
   if( writeEnd >= 0 ) {
      close( writeEnd );
   }
}

void Gate::await() {
   // Opening a FIFO for writing returns as soon as somebody has opened it for reading.
   if( writeEnd < 0 ) {
      make();
      writeEnd = checkedFile( open( path.c_str(), O_WRONLY | O_CLOEXEC ), "open" );
   }
}

void Gate::pass() {
   await();
   // The next process makes a FIFO of its own, so that this one is left for good.
   checkedFile( unlink( path.c_str() ), "unlink" );
   checkedFile( static_cast< int >( write( writeEnd, "\n", 1 ) ), "write" );
   pollfd readers{ writeEnd, 0, 0 };
   checkedFile( poll( &readers, 1, -1 ), "poll" ); // until there is none
   close( std::exchange( writeEnd, -1 ) );
}

// Observer

Observer::Observer() {
   sd_bus* raw = nullptr;
   checked( sd_bus_open_system( &raw ), "sd_bus_open_system" );
   bus.reset( raw );
   checked(
      sd_bus_match_signal(
         raw, nullptr, managerName, managerPath, managerInterface, "JobRemoved", onJobRemoved,
         this ),
      "sd_bus_match_signal" );
   checked(
      sd_bus_call_method(
         raw, managerName, managerPath, managerInterface, "Subscribe", nullptr, nullptr, "" ),
      "Subscribe" );
}

void Observer::watch( const std::string& unit ) {
   sd_bus_message* raw = nullptr;
   checked(
      sd_bus_call_method(
         bus.get(), managerName, managerPath, managerInterface, "LoadUnit", nullptr, &raw, "s",
         unit.c_str() ),
      "LoadUnit" );
   const MessagePtr reply( raw );
   const char* path = nullptr;
   checked( sd_bus_message_read( raw, "o", &path ), "LoadUnit" );
   checked(
      sd_bus_match_signal(
         bus.get(), nullptr, managerName, path, "org.freedesktop.DBus.Properties",
         "PropertiesChanged", onPropertiesChanged, this ),
      "sd_bus_match_signal" );
}

std::string Observer::resultOf( const std::string& job ) {
   while( true ) {
      for( const Ended& end : ended ) {
         if( end.job == job ) {
            return end.result;
         }
      }
      pump();
   }
}

Observer::Ended Observer::lastJobOf( const std::string& unit ) {
   while( true ) {
      for( auto end = ended.rbegin(); end != ended.rend(); ++end ) {
         if( end->unit == unit ) {
            return *end;
         }
      }
      pump();
   }
}

const std::vector< std::string >& Observer::statesUntilEndOf( const std::string& job ) {
   resultOf( job );
   return states;
}

void Observer::pump() {
   if( checked( sd_bus_process( bus.get(), nullptr ), "sd_bus_process" ) == 0 ) {
      checked( sd_bus_wait( bus.get(), UINT64_MAX ), "sd_bus_wait" );
   }
}

int Observer::onJobRemoved( sd_bus_message* signal, void* observer, sd_bus_error* /*error*/ ) {
   uint32_t id = 0;
   const char* job = nullptr;
   const char* unit = nullptr;
   const char* result = nullptr;
   checked( sd_bus_message_read( signal, "uoss", &id, &job, &unit, &result ), "JobRemoved" );
   static_cast< Observer* >( observer )->ended.push_back( { job, unit, result } );
   return 0;
}

int Observer::onPropertiesChanged(
   sd_bus_message* signal, void* observer, sd_bus_error* /*error*/ ) {
   checked( sd_bus_message_skip( signal, "s" ), "PropertiesChanged" );
   checked( sd_bus_message_enter_container( signal, 'a', "{sv}" ), "PropertiesChanged" );
   while( checked( sd_bus_message_enter_container( signal, 'e', "sv" ), "PropertiesChanged" ) >
          0 ) {
      const char* name = nullptr;
      const char* state = nullptr;
      checked( sd_bus_message_read( signal, "s", &name ), "PropertiesChanged" );
      if( std::string_view( name ) == "ActiveState" ) {
         checked( sd_bus_message_read( signal, "v", "s", &state ), "PropertiesChanged" );
         auto& states = static_cast< Observer* >( observer )->states;
         if( states.empty() || states.back() != state ) {
            states.emplace_back( state );
         }
      } else {
         checked( sd_bus_message_skip( signal, "v" ), "PropertiesChanged" );
      }
      checked( sd_bus_message_exit_container( signal ), "PropertiesChanged" );
   }
   return 0;
}

// CollectedTraces

CollectedTraces::CollectedTraces( const char* name ) : facility( name ) {
   Orl::traceLevelsIs( facility, Orl::allTraceLevels );
   Tessel::traceSinkIs( this );
}

CollectedTraces::~CollectedTraces() {
   Tessel::traceSinkIs( nullptr );
   Orl::traceLevelsIs( facility, 0 );
}

void CollectedTraces::traceIs( const Tessel::TextTrace& trace ) {
   if( std::string_view( trace.facility ) != facility ) {
      return;
   }
   collected.push_back(
      std::string( trace.function ) + '/' + std::to_string( trace.level ) + ": " +
      std::string( trace.text ) );
   const auto action = actions.extract( collected.back() );
   if( action ) {
      action.mapped()();
   }
}

void CollectedTraces::when( const std::string& line, std::function< void() > action ) {
   actions[line] = std::move( action );
}

// AClient

std::string AClient::call( const std::string& method, const std::string& unit ) {
   return text( client->managerCallSsO( method, unit, "replace", false ) );
}

std::string AClient::send( const std::string& method, const std::string& unit ) {
   return text( client->managerCallSsO( method, unit, "replace", true ) );
}

std::string AClient::stateOf( const std::string& unit ) {
   return text( client->unitPropertyS( unit, "ActiveState" ) );
}

} // namespace Sodrel::Test
