// Floods of signals and thousands of reconnections, which leave nothing behind.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <malloc.h>

#include <systemd/sd-bus.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

// The memory of the process: current, and peak since a reset.
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
   long before = 0;
   moments.atReading( 2, [&] {
      resetPeak();
      before = kilobytes( "VmRSS" );
      manager.runSoon( { foreignJobs( 1'000, leaksAreLookedFor() ? 100'000 : 300'000 ),
                         jobRemoved( 7, "done" ) } );
   } );

   EXPECT_EQ( callScripted( "StartUnit", { replyJob( 7 ) } ), jobOf( 7 ) );

   EXPECT_GT( before, 0 );
   // The address sanitizer keeps released memory.
   if( !leaksAreLookedFor() ) {
      EXPECT_LT( kilobytes( "VmHWM" ) - before, 4'096 );
   }
}

auto openDescriptors() {
   return std::distance( std::filesystem::directory_iterator( "/proc/self/fd" ), {} );
}

class ManyRenewals : public ALibraryClient {
 protected:
   // Loses the connection and uses the client this many times, after a warm-up.
   template< typename Loss >
   void leaveNothingBehind( int count, const Loss& lose ) {
      for( int i = 0; i < 10; ++i ) {
         lose();
         ASSERT_THAT(
            call( "StartUnit" ), testing::StartsWith( "/org/freedesktop/systemd1/job/" ) );
         moments.clear();
      }
      const auto descriptors = openDescriptors();
      // Nothing can be measured under a sanitizer with its own allocator.
      const size_t bytes = mallinfo2().uordblks;
      for( int i = 0; i < count; ++i ) {
         lose();
         ASSERT_EQ( systemState(), "running" );
         ASSERT_EQ( moments.lines().size(), 2U );
         moments.clear();
      }
      EXPECT_EQ( openDescriptors(), descriptors );
      // Allows for thread caches; a leaked connection costs 4,000 bytes each time.
      EXPECT_LT( mallinfo2().uordblks, bytes + 32'000 );
   }
};

TEST_F( ManyRenewals, ofClosedConnectionsLeaveNothingBehind ) {
   leaveNothingBehind( 5'000, [&] {
      sd_bus_close( client->sdbus() );
      moments.clear();
   } );
}

TEST_F( ManyRenewals, afterProbesThatFailLeaveNothingBehind ) {
   leaveNothingBehind(
      1'900, [&] { manager.onCall( "Get SystemState", { error( "org.example.Expired" ) } ); } );
}

TEST_F( ManyRenewals, afterDeathsOfTheBusLeaveNothingBehind ) {
   leaveNothingBehind( 100, [&] {
      bus.kill();
      bus.start();
      manager.run( { connect() } );
   } );
}

} // namespace

} // namespace SodrelTest
