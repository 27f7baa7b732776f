// A program outside of the tree, on a machine without a system bus: what it needs to compile, link
// and run is installed, and what it is told is an exception of its own kind.
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <cstdio>

int main() {
   if( !Tessel::findType( "Sodrel::JobRemovedMonitor" ).module ) {
      return 2;
   }
   try {
      (void)Sodrel::sdbusFactory();
      return 3;
   } catch( const Sodrel::NoSdbusException& error ) {
      std::printf( "%s: %s\n", error.name().data(), error.what() );
   }
}
