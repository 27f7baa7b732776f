// Reloads a unit and reports the job's own word, such as "failed" when its ExecReload= fails.
//
// A synchronous "ReloadUnit" waits until the unit is active again, which a unit is after a failed
// reload too. This way the outcome is the job's, and nobody needs to have subscribed.
//
//    reload-unit NAME.service
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <cstdio>

int main( int argc, char** argv ) {
   if( argc != 2 ) {
      std::fprintf( stderr, "usage: %s UNIT\n", argv[0] );
      return 2;
   }
   try {
      auto systemd = Sodrel::sdbusFactory();
      // Before the call, so that the end of the job cannot be missed.
      auto monitor = Sodrel::jobRemovedMonitorFactory( systemd->sdbus() );
      const auto job = systemd->asyncManagerCallSsO( "ReloadUnit", argv[1], "replace" );
      monitor->wait( job );
      std::puts( "reloaded" );
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
