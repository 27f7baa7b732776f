// Fuzzes the wait for a unit's reload: bodies of the signal PropertiesChanged.
#include "Wait.h"

namespace SodrelTest {

namespace {

constexpr const char* unitPath = "/org/freedesktop/systemd1/unit/web_2eservice";

// The progress of a unit's reload, and whether its latest ActiveState is "failed".
struct UnitReload {
   bool started = false;
   bool finished = false;
   bool failed = false;
   bool unreadable = false;

   void hear( sd_bus_message* signal ) { unreadable = !read( signal ); }

   // Returns whether the relevant part of the signal could be read.
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
         if( sd_bus_message_enter_container( signal, 'e', "sv" ) <= 0 || !readEntry( signal ) ||
             sd_bus_message_exit_container( signal ) < 0 ) {
            return false;
         }
      }
      return true;
   }

   bool readEntry( sd_bus_message* signal ) {
      const char* name = nullptr;
      return readBasic( signal, 's', &name ) && ( std::string_view( name ) == "ActiveState"
                                                     ? readState( signal )
                                                     : sd_bus_message_skip( signal, "v" ) >= 0 );
   }

   bool readState( sd_bus_message* signal ) {
      const char* value = nullptr;
      if( sd_bus_message_enter_container( signal, 'v', "s" ) <= 0 ||
          !readBasic( signal, 's', &value ) || sd_bus_message_exit_container( signal ) < 0 ) {
         return false;
      }
      const std::string_view word = value;
      failed = word == "failed";
      finished = finished || ( started && word == "active" );
      started = started || word == "reloading" || word == "activating";
      return true;
   }

   [[nodiscard]] std::string outcome() const {
      const std::string waiting = "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, ";
      if( unreadable ) {
         return waiting + "callback handling failed";
      }
      if( finished ) {
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
   requireAttribute( *record, "callbackFailed", reload.unreadable );
   requireAttribute( *record, "started", reload.started );
   requireAttribute( *record, "finished", reload.finished );
   requireAttribute( *record, "failed", reload.failed );
}

} // namespace SodrelTest
