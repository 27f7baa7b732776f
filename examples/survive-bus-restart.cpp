// Uses one Sdbus across a restart of the bus: the next operation replaces the connection.
//
// Waits for a line on standard input before each read; restart the bus meanwhile.
//
//    survive-bus-restart
#include <Sodrel/Sodrel.h>

#include <cstdio>

namespace {

void report( Sodrel::Sdbus& systemd ) {
   try {
      std::printf( "system %s\n", systemd.managerPropertyS( "SystemState" ).data() );
   } catch( const Sodrel::NoSdbusException& error ) {
      // While there is no bus, each operation tries to connect and fails; none hangs.
      std::printf( "no bus: %s\n", error.what() );
   } catch( const Sodrel::SdbusCallException& error ) {
      // The bus is back, but systemd is not on it yet.
      std::printf( "no answer: %s\n", error.what() );
   }
}

} // namespace

int main() {
   try {
      auto systemd = Sodrel::sdbusFactory();
      int key = 0;
      do {
         report( *systemd );
         // What belonged to the old connection is lost: its subscription, a raised time limit and
         // every monitor. A program that needs them sets them up again here.
         std::puts( "press return to read again, Ctrl-D to end" );
         while( ( key = std::getchar() ) != '\n' && key != EOF ) {
         }
      } while( key != EOF );
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
