// Runs a command on a private bus with a scripted manager, which surrounds the reply to "StartUnit"
// with JobRemoved signals of other jobs: flooded-bus BEFORE AFTER COMMAND [ARGUMENT...].
#include "Client.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include <support/ScriptedManager.h>

using namespace Sodrel::Test;

namespace {

std::uint32_t number( const char* text ) {
   return static_cast< std::uint32_t >( std::strtoul( text, nullptr, 10 ) );
}

} // namespace

int main( int argc, char** argv ) {
   if( argc < 4 ) {
      std::fputs( "usage: flooded-bus BEFORE AFTER COMMAND [ARGUMENT...]\n", stderr );
      return 2;
   }
   constexpr std::uint32_t foreign = 1'000'000;
   const PrivateBus bus;
   ScriptedManager manager(
      bus, { { .name = TARGET }, { .name = SERVICE, .activeState = "active" } } );
   manager.onEveryCall(
      "StartUnit", { foreignJobs( foreign, number( argv[1] ) ), queueJob(),
                     foreignJobs( foreign, number( argv[2] ) ), finishJob() } );
   ChildProcess command( [&] {
      execvp( argv[3], argv + 3 );
      std::perror( argv[3] );
      return 127;
   } );
   return command.wait();
}
