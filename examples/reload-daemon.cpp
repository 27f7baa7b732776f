// Makes systemd read its unit files again, and waits until it has done so.
//
//    reload-daemon
#include <Sodrel/Sodrel.h>

#include <cstdio>

int main() {
   try {
      auto systemd = Sodrel::sdbusFactory();
      // systemd reports reloads only while some client has subscribed. A subscription ends with
      // the connection, so subscribe again after a reconnection.
      systemd->managerCall( "Subscribe", /*async*/ true );
      systemd->managerCall( "Reload", /*async*/ false );
      std::puts( "reloaded" );
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
