// Subscribes to the manager's signals for all clients, until its standard input ends.
#include <stdio.h>
#include <string.h>
#include <systemd/sd-bus.h>

int main( void ) {
   sd_bus* bus = NULL;
   int result = sd_bus_open_system( &bus );
   if( result >= 0 ) {
      result = sd_bus_call_method(
         bus, "org.freedesktop.systemd1", "/org/freedesktop/systemd1",
         "org.freedesktop.systemd1.Manager", "Subscribe", NULL, NULL, "" );
   }
   if( result < 0 ) {
      fprintf( stderr, "cannot subscribe: %s\n", strerror( -result ) );
      return 1;
   }
   puts( "ready" );
   fflush( stdout );
   while( getchar() != EOF ) {
   }
   sd_bus_flush_close_unref( bus );
   return 0;
}
