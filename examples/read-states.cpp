// Prints the manager's state, whether it shows status messages, and the state of each named unit.
//
//    read-states [UNIT...]
#include <Sodrel/Sodrel.h>

#include <cstdio>

int main( int argc, char** argv ) {
   try {
      auto systemd = Sodrel::sdbusFactory();
      std::printf( "system %s\n", systemd->managerPropertyS( "SystemState" ).data() );
      std::printf(
         "status messages %s\n", systemd->managerPropertyB( "ShowStatus" ) ? "on" : "off" );
      for( int i = 1; i < argc; ++i ) {
         std::printf( "%s %s\n", argv[i], systemd->unitPropertyS( argv[i], "ActiveState" ).data() );
      }
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
