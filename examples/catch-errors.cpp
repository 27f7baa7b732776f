// Starts a unit and distinguishes the kinds of failure by the class of the exception.
//
//    catch-errors NAME.service
#include <Sodrel/Sodrel.h>

#include <cstdio>

int main( int argc, char** argv ) {
   if( argc != 2 ) {
      std::fprintf( stderr, "usage: %s UNIT\n", argv[0] );
      return 2;
   }
   try {
      auto systemd = Sodrel::sdbusFactory();
      systemd->managerCallSsO( "StartUnit", argv[1], "replace", /*async*/ false );
      std::puts( "started" );
      return 0;
   } catch( const Sodrel::NoSdbusException& error ) {
      std::printf( "no bus, try again later: %s\n", error.what() );
   } catch( const Sodrel::SdbusCallException& error ) {
      std::printf( "systemd refused or did not answer: %s\n", error.what() );
   } catch( const Sodrel::SdbusJobException& error ) {
      std::printf( "the unit did not start: %s\n", error.what() );
   } catch( const Sodrel::SdbusSyncException& error ) {
      std::printf( "sent, but its end was not seen: %s\n", error.what() );
   } catch( const Sodrel::Exception& error ) {
      std::printf( "the reply made no sense: %s\n", error.what() );
   }
   return 1;
}
