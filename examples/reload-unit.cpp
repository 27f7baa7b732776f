// Reloads a unit and reports the job's own result, such as "failed" if its ExecReload= fails.
//
// A synchronous "ReloadUnit" waits until the unit is active again, which is also the case after a
// failed reload. Waiting for the job yields its own outcome, and no client needs to subscribe.
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
      // Created before the call, so that the end of the job cannot be missed.
      auto monitor = Sodrel::jobRemovedMonitorFactory( systemd->sdbus() );
      const auto job = systemd->asyncManagerCallSsO( "ReloadUnit", argv[1], "replace" );
      monitor->wait( job );
      std::puts( "reloaded" );
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
