// Restarts units, waits until systemd has done so, and prints their states.
//
//    restart-unit UNIT...
#include <Sodrel/Sodrel.h>
#include <cstdio>

int main( int argc, char** argv ) {
   try {
      auto systemd = Sodrel::sdbusFactory();
      for( int i = 1; i < argc; ++i ) {
         systemd->managerCallSsO( "RestartUnit", argv[i], "replace", /*async*/ false );
         std::printf( "%s %s\n", argv[i], systemd->unitPropertyS( argv[i], "ActiveState" ).data() );
      }
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
