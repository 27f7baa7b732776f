// Looking at a real systemd, and disturbing it.
#include "Box.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace SodrelTest {

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

std::string shown( const std::string& property, const std::string& unit ) {
   return run( "systemctl show --value --property=" + property + ' ' + unit );
}

bool busIsBroker() {
   return shown( "ExecStart", "dbus.service" ).find( "dbus-broker" ) != std::string::npos;
}

bool busHasSubscribed() {
   return busIsBroker() && std::stoi( run( "dbus-broker --version | tr -dc 0-9" ) ) >= 33;
}

std::string text( const Tessel::String& string ) {
   return std::string( std::string_view( string ) );
}

std::string thrownBy( const std::function< void() >& operation ) {
   try {
      operation();
   } catch( const Tessel::Exception& exception ) {
      return std::string( exception.name().data() ) + ": " + exception.what();
   }
   return "nothing";
}

std::string shortWait( SignalMonitor& monitor, const std::string& object ) {
   limitIs( monitor, 50'000'000 );
   Orl::Optional< Tessel::String > awaited;
   if( !object.empty() ) {
      awaited = Tessel::String( object );
   }
   return thrownBy( [&] { EXPECT_TRUE( monitor.wait( awaited ) ); } );
}

void limitIs( SignalMonitor& monitor, std::uint64_t nanoseconds ) {
   const Tessel::Interval limit( nanoseconds );
   ASSERT_EQ(
      Tessel::memberOf( monitor, "syncTimeout" ).write( monitor, &limit ), Tessel::accessDone );
}

// Gate

Gate::Gate( std::string path ) : path_( std::move( path ) ) {
   make();
}

void Gate::make() const {
   if( mkfifo( path_.c_str(), 0600 ) < 0 && errno != EEXIST ) {
      checkedFile( -1, "mkfifo" );
   }
}

Gate::~Gate() {
   if( writeEnd_ >= 0 ) {
      close( writeEnd_ );
   }
}

void Gate::await() {
   // Opening a FIFO for writing returns as soon as somebody has opened it for reading.
   if( writeEnd_ < 0 ) {
      make();
      writeEnd_ = checkedFile( open( path_.c_str(), O_WRONLY | O_CLOEXEC ), "open" );
   }
}

void Gate::pass() {
   await();
   // The next process makes a FIFO of its own, so that this one is left for good.
   checkedFile( unlink( path_.c_str() ), "unlink" );
   checkedFile( static_cast< int >( write( writeEnd_, "\n", 1 ) ), "write" );
   pollfd readers{ writeEnd_, 0, 0 };
   checkedFile( poll( &readers, 1, -1 ), "poll" ); // until there is none
   close( std::exchange( writeEnd_, -1 ) );
}

// Observer

Observer::Observer() {
   sd_bus* raw = nullptr;
   checked( sd_bus_open_system( &raw ), "sd_bus_open_system" );
   bus_.reset( raw );
   match( managerPath, managerInterface, "JobRemoved", onJobRemoved );
   call( "Subscribe", "", nullptr );
}

void Observer::match(
   const char* path, const char* interface, const char* member, sd_bus_message_handler_t handler ) {
   checked(
      sd_bus_match_signal(
         bus_.get(), nullptr, managerName, path, interface, member, handler, this ),
      "sd_bus_match_signal" );
}

MessagePtr Observer::call( const char* method, const char* types, const char* argument ) {
   sd_bus_message* reply = nullptr;
   checked(
      sd_bus_call_method(
         bus_.get(), managerName, managerPath, managerInterface, method, nullptr, &reply, types,
         argument ),
      method );
   return MessagePtr( reply );
}

void Observer::watch( const std::string& unit ) {
   const MessagePtr reply = call( "LoadUnit", "s", unit.c_str() );
   const char* path = nullptr;
   checked( sd_bus_message_read( reply.get(), "o", &path ), "LoadUnit" );
   match( path, "org.freedesktop.DBus.Properties", "PropertiesChanged", onPropertiesChanged );
}

Observer::Ended Observer::await( const std::function< bool( const Ended& ) >& isIt ) {
   while( true ) {
      const auto found = std::find_if( ended_.rbegin(), ended_.rend(), isIt );
      if( found != ended_.rend() ) {
         return *found;
      }
      if( checked( sd_bus_process( bus_.get(), nullptr ), "sd_bus_process" ) == 0 ) {
         checked( sd_bus_wait( bus_.get(), UINT64_MAX ), "sd_bus_wait" );
      }
   }
}

std::string Observer::resultOf( const std::string& job ) {
   return await( [&]( const Ended& end ) { return end.job == job; } ).result;
}

Observer::Ended Observer::lastJobOf( const std::string& unit ) {
   return await( [&]( const Ended& end ) { return end.unit == unit; } );
}

std::string Observer::statesUntilEndOf( const std::string& job ) {
   resultOf( job );
   std::string all;
   for( const std::string& state : states_ ) {
      all += all.empty() ? state : ' ' + state;
   }
   return all;
}

int Observer::onJobRemoved( sd_bus_message* signal, void* observer, sd_bus_error* /*error*/ ) {
   uint32_t id = 0;
   const char* job = nullptr;
   const char* unit = nullptr;
   const char* result = nullptr;
   checked( sd_bus_message_read( signal, "uoss", &id, &job, &unit, &result ), "JobRemoved" );
   static_cast< Observer* >( observer )->ended_.push_back( { job, unit, result } );
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
         auto& states = static_cast< Observer* >( observer )->states_;
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

CollectedTraces::CollectedTraces( std::vector< const char* > facilities )
   : facilities_( std::move( facilities ) ) {
   for( const char* const facility : facilities_ ) {
      Orl::TraceHandle( facility, false ).levelsIs( Orl::allTraceLevels );
   }
   Tessel::traceSinkIs( this );
}

CollectedTraces::~CollectedTraces() {
   Tessel::traceSinkIs( nullptr );
   for( const char* const facility : facilities_ ) {
      Orl::TraceHandle( facility, false ).levelsIs( 0 );
   }
}

void CollectedTraces::traceIs( const Tessel::TextTrace& trace ) {
   collected_.push_back(
      std::string( trace.function ) + '/' + std::to_string( trace.level ) + ": " +
      std::string( trace.text ) );
   const auto action = actions_.extract( collected_.back() );
   if( action ) {
      action.mapped()();
   }
}

void CollectedTraces::when( const std::string& line, std::function< void() > action ) {
   actions_[line] = std::move( action );
}

// WithoutRights

WithoutRights::WithoutRights() {
   const passwd* const user = getpwnam( "daemon" );
   if( !user ) {
      throw std::runtime_error( "no user is called daemon" );
   }
   checkedFile( seteuid( user->pw_uid ), "seteuid" );
}

WithoutRights::~WithoutRights() {
   EXPECT_EQ( seteuid( 0 ), 0 );
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

} // namespace SodrelTest
