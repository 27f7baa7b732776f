// The actions of a scripted manager.
#include <support/ScriptedManagerActions.h>

#include <stdexcept>

#include <support/ScriptedManagerModel.h>
#include <support/SystemdNames.h>

namespace SodrelTest {

namespace {

sd_bus_message* callOf( const Turn& turn ) {
   if( turn.call == nullptr ) {
      throw std::logic_error( "an action that needs a call stands outside a call's script" );
   }
   return turn.call;
}

} // namespace

Action reply( const Body& content ) {
   return { [=]( Turn& turn ) { sendReply( callOf( turn ), content ); }, true };
}

Action replyJob( uint32_t id ) {
   return reply( body( "o", jobOf( id ) ) );
}

Action error( const std::string& name, const std::optional< std::string >& message ) {
   return { [=]( Turn& turn ) { sendError( callOf( turn ), name, message ); }, true };
}

Action signal(
   const std::string& path, const std::string& interface, const std::string& member,
   const Body& content ) {
   return { [=]( Turn& turn ) { sendSignal( turn.sender, path, interface, member, content ); } };
}

Action signal( const std::string& member, const Body& content ) {
   return signal( managerPath, managerInterface, member, content );
}

Action jobRemoved( uint32_t id, const std::string& result, const std::string& unit ) {
   return signal( "JobRemoved", body( "uoss", id, jobOf( id ), unit, result ) );
}

Action reloading( bool active ) {
   return signal( "Reloading", body( "b", active ) );
}

Action propertiesChanged( const std::string& unit, const Body& content ) {
   return signal( unitPath( unit ), propertiesInterface, "PropertiesChanged", content );
}

Action activeState( const std::string& unit, const std::string& state ) {
   return { [=]( Turn& turn ) { turn.manager.changeState( unit, state ); } };
}

Action foreignJobs( uint32_t first, uint32_t count ) {
   return { [=]( Turn& turn ) {
      for( uint32_t sent = 0; sent < count; ++sent ) {
         jobRemoved( first + sent, "done" ).act( turn );
         if( sent % 64 == 0 ) {
            checked( sd_bus_flush( turn.sender ), "sd_bus_flush" );
         }
      }
      turn.manager.deliver();
   } };
}

Action byStranger( const Action& signal ) {
   return { [=]( Turn& turn ) {
      turn.manager.deliver();
      const BusPtr stranger = busAt( turn.manager.address() );
      // The record of calls recognises the test support by the names that it requests.
      checked( sd_bus_request_name( stranger.get(), "sodrel.test.Stranger", 0 ), "stranger" );
      Turn other{ turn.manager, stranger.get(), nullptr };
      signal.act( other );
      roundTrip( stranger.get() );
   } };
}

Action releaseName() {
   return { []( Turn& turn ) {
      checked( sd_bus_release_name( turn.sender, systemdName ), "sd_bus_release_name" );
   } };
}

Action acquireName() {
   return { []( Turn& turn ) {
      checked( sd_bus_request_name( turn.sender, systemdName, 0 ), "sd_bus_request_name" );
   } };
}

Action disconnect() {
   return { []( Turn& turn ) {
      turn.manager.deliver();
      turn.manager.disconnect();
      turn.sender = nullptr;
   } };
}

Action connect() {
   return { []( Turn& turn ) {
      turn.manager.connect();
      turn.sender = turn.manager.bus();
   } };
}

Action killBus( PrivateBus& bus ) {
   return { [&bus]( Turn& turn ) {
      turn.manager.deliver();
      bus.kill();
   } };
}

Action custom( const std::function< void( sd_bus_message* ) >& function ) {
   return { [=]( Turn& turn ) { function( turn.call ); } };
}

} // namespace SodrelTest
