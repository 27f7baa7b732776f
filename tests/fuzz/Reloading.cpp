// Fuzzes the wait for the end of the manager's reload: bodies of the signal Reloading.
#include "Wait.h"

namespace Sodrel::Fuzz {

namespace {

// The four states of a reload as its signals tell it.
struct Reload {
   enum class State { idle, running, endedWithoutStart, ended };
   State state = State::idle;
   bool unreadable = false;

   void hear( sd_bus_message* signal ) {
      int active = 0;
      if( !readBasic( signal, 'b', &active ) ) {
         unreadable = true;
         return;
      }
      switch( state ) {
      case State::idle:
         state = active ? State::running : State::endedWithoutStart;
         break;
      case State::running:
         state = active ? State::running : State::ended;
         break;
      case State::endedWithoutStart:
         state = active ? State::running : State::endedWithoutStart;
         break;
      case State::ended:
         break;
      }
   }

   [[nodiscard]] std::string outcome() const {
      const std::string waiting = "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, ";
      if( unreadable ) {
         return waiting + "callback handling failed";
      }
      switch( state ) {
      case State::endedWithoutStart:
         return "false";
      case State::ended:
         return "true";
      default:
         return waiting + "600.000000 timeout";
      }
   }
};

} // namespace

} // namespace Sodrel::Fuzz

int LLVMFuzzerTestOneInput( const std::uint8_t* data, std::size_t size ) {
   using namespace Sodrel::Fuzz;
   Input input( data, size );
   Reload reload;
   PrivateConnection connection;
   connection.hearWith( [&]( sd_bus_message* signal ) { reload.hear( signal ); } );
   const auto monitor = Sodrel::daemonReloadingMonitorFactory( connection.bus() );
   const Header header{ .path = "/org/freedesktop/systemd1",
                        .interface = "org.freedesktop.systemd1.Manager",
                        .member = "Reloading" };
   sendSignals( connection, header, input );

   const std::string outcome = outcomeOf( *monitor, std::nullopt );
   requireSame( outcome, reload.outcome() );
   using State = Reload::State;
   const bool started = reload.state == State::running || reload.state == State::ended;
   const bool finished = reload.state == State::endedWithoutStart || reload.state == State::ended;
   const auto record = monitor->dataIs();
   require(
      attributeOf< bool >( *record, "callbackFailed" ) == reload.unreadable, "callbackFailed" );
   require( attributeOf< bool >( *record, "started" ) == started, "started" );
   require( attributeOf< bool >( *record, "finished" ) == finished, "finished" );
   return 0;
}
