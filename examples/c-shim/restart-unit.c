/* Restarts a unit from C.
 *
 *    restart-unit-in-c NAME.service
 */
#include "systemd.h"

#include <stdio.h>

int main( int argc, char** argv ) {
   if( argc != 2 ) {
      fprintf( stderr, "usage: %s UNIT\n", argv[0] );
      return 2;
   }
   struct Systemd* systemd = systemdOpen();
   const int restarted = systemd ? systemdRestartUnit( systemd, argv[1] ) : -1;
   if( restarted < 0 ) {
      fprintf( stderr, "%s\n", systemdError() );
   } else {
      puts( "restarted" );
   }
   systemdClose( systemd );
   return restarted < 0;
}
