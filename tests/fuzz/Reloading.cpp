// Fuzzes the wait for the end of the manager's reload: bodies of the signal Reloading.
#include "Wait.h"

namespace SodrelTest {

namespace {

// The four states of a reload according to its signals.
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
      if( state == State::running ) {
         state = active ? State::running : State::ended;
      } else if( state != State::ended ) {
         state = active ? State::running : State::endedWithoutStart;
      }
   }

   [[nodiscard]] std::string outcome() const {
      const std::string waiting = "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, ";
      if( unreadable ) {
         return waiting + "callback handling failed";
      }
      if( state == State::endedWithoutStart ) {
         return "false";
      }
      return state == State::ended ? "true" : waiting + "600.000000 timeout";
   }
};

} // namespace

void fuzz( Input input ) {
   Reload reload;
   const Header header{ .path = "/org/freedesktop/systemd1",
                        .interface = "org.freedesktop.systemd1.Manager",
                        .member = "Reloading" };
   const auto record = recordOfWait( input, header, reload, Sodrel::daemonReloadingMonitorFactory );
   using State = Reload::State;
   const State state = reload.state;
   requireAttribute( *record, "callbackFailed", reload.unreadable );
   requireAttribute( *record, "started", state == State::running || state == State::ended );
   requireAttribute(
      *record, "finished", state == State::endedWithoutStart || state == State::ended );
}

} // namespace SodrelTest
