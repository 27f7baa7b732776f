// A flood of signals about the jobs of others while a client waits for its own.
//
// SODREL_FLOOD sets how many there are.
#include <cstdlib>
#include <fstream>
#include <string>

#include "BusWitness.h"
#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

uint32_t floodSize() {
   const char* const size = std::getenv( "SODREL_FLOOD" );
   if( size ) {
      return static_cast< uint32_t >( std::stoul( size ) );
   }
   return leaksAreLookedFor() ? 100'000 : 1'000'000;
}

// The memory that the process holds now, and at most since a reset.
long kilobytes( const std::string& key ) {
   std::ifstream status( "/proc/self/status" );
   for( std::string word; status >> word; ) {
      if( word == key + ':' ) {
         long value = 0;
         status >> value;
         return value;
      }
   }
   return -1;
}

void resetPeak() {
   std::ofstream( "/proc/self/clear_refs" ) << 5;
}

struct AFloodOfSignals : ALibraryClient {};

TEST_F( AFloodOfSignals, neitherDrownsAWaitNorFillsTheMemory ) {
   manager.onCall(
      "StartUnit", { reply( jobPath( 7 ) ), hold( "Flood" ), foreignJobs( 1'000, floodSize() ),
                     jobRemoved( 7, "done" ) } );
   BusWitness witness( bus );
   long before = 0;
   moments.atReading( 2, [&] {
      resetPeak();
      before = kilobytes( "VmRSS" );
      witness.call( "Flood" );
   } );

   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );

   EXPECT_GT( before, 0 );
   // The address sanitizer keeps 256 MB of what has been released.
   EXPECT_LT( kilobytes( "VmHWM" ) - before, leaksAreLookedFor() ? 300'000 : 4'096 );
}

} // namespace

} // namespace Sodrel::Test
