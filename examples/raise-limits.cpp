// Raises both time limits for a slow reload: the one for the reply, 25 s by default, and the one
// for the signal, 600 s.
//
//    raise-limits
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <cstdio>
#include <systemd/sd-bus.h>

int main() {
   try {
      auto systemd = Sodrel::sdbusFactory();
      systemd->managerCall( "Subscribe", /*async*/ true );

      // The limit for the reply belongs to the connection and is lost with it. The environment
      // variable SYSTEMD_BUS_TIMEOUT sets it for every new connection.
      constexpr std::uint64_t oneHourInMicroseconds = 3'600'000'000;
      sd_bus* const bus = systemd->sdbus();
      sd_bus_set_method_call_timeout( bus, oneHourInMicroseconds );

      // The limit for the signal belongs to the monitor, and reflection sets it.
      auto monitor = Sodrel::daemonReloadingMonitorFactory( bus );
      const Tessel::Interval oneHour( 3'600'000'000'000 );
      Tessel::memberOf( *monitor, "syncTimeout" ).write( *monitor, &oneHour );

      systemd->asyncManagerCall( "Reload" );
      std::puts( monitor->wait( std::nullopt ) ? "reloaded" : "reloaded, start not seen" );
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
