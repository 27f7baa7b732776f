// Fuzzes the wait for a unit's reload: bodies of the signal PropertiesChanged.
#include "Wait.h"

namespace SodrelTest {

namespace {

constexpr const char* unitPath = "/org/freedesktop/systemd1/unit/web_2eservice";

// The three states of a unit's reload, and whether its latest ActiveState is "failed".
struct UnitReload {
   enum class State { idle, started, finished };
   State state = State::idle;
   bool failed = false;
   bool unreadable = false;

   void hear( sd_bus_message* signal ) { unreadable = !read( signal ); }

   // Returns whether the signal could be read as far as it matters.
   bool read( sd_bus_message* signal ) {
      const char* interface = nullptr;
      if( !readBasic( signal, 's', &interface ) ) {
         return false;
      }
      if( std::string_view( interface ) != "org.freedesktop.systemd1.Unit" ) {
         return true;
      }
      if( sd_bus_message_enter_container( signal, 'a', "{sv}" ) <= 0 ) {
         return false;
      }
      while( sd_bus_message_at_end( signal, 0 ) == 0 ) {
         const char* name = nullptr;
         if( sd_bus_message_enter_container( signal, 'e', "sv" ) <= 0 ||
             !readBasic( signal, 's', &name ) ) {
            return false;
         }
         const bool matters = std::string_view( name ) == "ActiveState";
         if( matters ? !readState( signal ) : sd_bus_message_skip( signal, "v" ) < 0 ) {
            return false;
         }
         if( sd_bus_message_exit_container( signal ) < 0 ) {
            return false;
         }
      }
      return true;
   }

   bool readState( sd_bus_message* signal ) {
      const char* value = nullptr;
      if( sd_bus_message_enter_container( signal, 'v', "s" ) <= 0 ||
          !readBasic( signal, 's', &value ) || sd_bus_message_exit_container( signal ) < 0 ) {
         return false;
      }
      const std::string_view word = value;
      failed = word == "failed";
      if( state == State::idle && ( word == "reloading" || word == "activating" ) ) {
         state = State::started;
      } else if( state == State::started && word == "active" ) {
         state = State::finished;
      }
      return true;
   }

   [[nodiscard]] std::string outcome() const {
      const std::string waiting = "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, ";
      if( unreadable ) {
         return waiting + "callback handling failed";
      }
      if( state == State::finished ) {
         return "true";
      }
      return waiting + ( failed ? std::string( "unit " ) + unitPath + " failed: Success"
                                : "600.000000 timeout" );
   }
};

} // namespace

void fuzz( Input input ) {
   UnitReload reload;
   const Header header{ .path = unitPath,
                        .interface = "org.freedesktop.DBus.Properties",
                        .member = "PropertiesChanged" };
   const auto record = recordOfWait( input, header, reload, []( sd_bus* bus ) {
      return Sodrel::unitReloadingMonitorFactory( bus, unitPath );
   } );
   using State = UnitReload::State;
   requireAttribute( *record, "callbackFailed", reload.unreadable );
   requireAttribute( *record, "started", reload.state != State::idle );
   requireAttribute( *record, "finished", reload.state == State::finished );
   requireAttribute( *record, "failed", reload.failed );
}

} // namespace SodrelTest
