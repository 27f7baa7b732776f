// Has systemd read its unit files again, and waits until it has.
//
//    reload-daemon
#include <Sodrel/Sodrel.h>

#include <cstdio>

int main() {
   try {
      auto systemd = Sodrel::sdbusFactory();
      // systemd says that it reloads only while somebody has subscribed. This lasts as long as
      // the connection, so it is to be done again after a reconnection.
      systemd->managerCall( "Subscribe", /*async*/ true );
      systemd->managerCall( "Reload", /*async*/ false );
      std::puts( "reloaded" );
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
