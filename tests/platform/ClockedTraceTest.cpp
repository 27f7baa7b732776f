// Traces by clocks that stand: the time in a line, and when a file is told the clocks.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

namespace {

timespec now{};
std::int64_t monotonic = 0; // nanoseconds

constexpr std::int64_t second = 1'000'000'000;

} // namespace

// The linker leads the calls of the trace's objects here.
extern "C" int __wrap_clock_gettime( clockid_t clock, timespec* time ) {
   *time = clock == CLOCK_MONOTONIC ? timespec{ monotonic / second, monotonic % second } : now;
   return 0;
}

namespace {

TRACE_FACILITY( "ClockedTraceTest" );

std::string timeOfALine( std::time_t seconds, long nanoseconds ) {
   now = { seconds, nanoseconds };
   testing::internal::CaptureStderr();
   TRACE( 8, "" );
   const std::string line = testing::internal::GetCapturedStderr();
   return line.substr( 0, line.find( ' ' ) );
}

TEST( TheTimeOfALine, isCutToMicroseconds ) {
   Orl::traceLevelsIs( "ClockedTraceTest", Orl::allTraceLevels );
   constexpr std::time_t day = 86'400;
   EXPECT_EQ( timeOfALine( 0, 0 ), "1970-01-01T00:00:00.000000Z" );
   EXPECT_EQ( timeOfALine( 0, 999 ), "1970-01-01T00:00:00.000000Z" );
   EXPECT_EQ( timeOfALine( 1, 1'000 ), "1970-01-01T00:00:01.000001Z" );
   EXPECT_EQ( timeOfALine( 1, 99'999 ), "1970-01-01T00:00:01.000099Z" );
   EXPECT_EQ( timeOfALine( 61, 100'000 ), "1970-01-01T00:01:01.000100Z" );
   EXPECT_EQ( timeOfALine( 61, 9'999'000 ), "1970-01-01T00:01:01.009999Z" );
   EXPECT_EQ( timeOfALine( 3'600, 10'000'000 ), "1970-01-01T01:00:00.010000Z" );
   EXPECT_EQ( timeOfALine( day, 123'456'789 ), "1970-01-02T00:00:00.123456Z" );
   EXPECT_EQ( timeOfALine( 365 * day, 999'999'999 ), "1971-01-01T00:00:00.999999Z" );
}

TEST( TheTimeOfALine, isThatOfAThreadsFirstLineWhateverTheTimeIs ) {
   Orl::traceLevelsIs( "ClockedTraceTest", Orl::allTraceLevels );
   for( const std::time_t time : { 0, 1 } ) {
      std::thread( [time] {
         EXPECT_EQ(
            timeOfALine( time, 0 ), "1970-01-01T00:00:0" + std::to_string( time ) + ".000000Z" );
      } ).join();
   }
}

class AFileByTheClocks : public testing::Test {
 protected:
   // When the process reads the clocks for the first time.
   static constexpr std::int64_t start = 3600 * second;

   // The number of readings, and the monotonic time of the last, after a record at this time.
   std::pair< std::uint64_t, std::int64_t > readingsWithARecordAt( std::int64_t time ) {
      monotonic = time;
      Fennet::RingBuf ring;
      ring.startMsg( *handle_.mtTraceFile(), 1 );
      ring.endMsg();
      std::uint64_t number = 0;
      Fennet::ClockReading recent[2];
      std::ifstream file( folder_.files().at( 0 ), std::ios::binary );
      file.seekg( offsetof( Fennet::FileHeader, readings ) );
      file.read( reinterpret_cast< char* >( &number ), sizeof number );
      file.seekg( offsetof( Fennet::FileHeader, recent ) );
      file.read( reinterpret_cast< char* >( recent ), sizeof recent );
      const Fennet::ClockReading& last = recent[number % 2];
      EXPECT_EQ( last.ticks, static_cast< std::uint64_t >( last.monotonic ) );
      EXPECT_EQ( last.realtime, now.tv_sec * second + now.tv_nsec );
      return { number, last.monotonic };
   }

 private:
   const Fennet::TraceFolder folder_;
   Fennet::TraceHandle handle_{ folder_.path(), Fennet::minRingSize, true };
};

TEST_F( AFileByTheClocks, isToldThemWhenItsAgeHasDoubledAndEachSecond ) {
   using Readings = std::pair< std::uint64_t, std::int64_t >;
   now = { 1'000'000'000, 7 };
   // A file has a reading from its beginning; the second is due after it, with whatever comes next.
   EXPECT_EQ( readingsWithARecordAt( start ), Readings( 1, start ) );
   EXPECT_EQ( readingsWithARecordAt( start + 1'000 ), Readings( 2, start + 1'000 ) );
   EXPECT_EQ( readingsWithARecordAt( start + 2'000 ), Readings( 2, start + 1'000 ) );
   EXPECT_EQ( readingsWithARecordAt( start + 2'001 ), Readings( 3, start + 2'001 ) );
   EXPECT_EQ( readingsWithARecordAt( start + 4'002 ), Readings( 3, start + 2'001 ) );
   EXPECT_EQ( readingsWithARecordAt( start + 4'003 ), Readings( 4, start + 4'003 ) );
   EXPECT_EQ( readingsWithARecordAt( start + 2 * second ), Readings( 5, start + 2 * second ) );
   EXPECT_EQ( readingsWithARecordAt( start + 3 * second ), Readings( 5, start + 2 * second ) );
   const std::int64_t late = start + 3 * second + 1;
   EXPECT_EQ( readingsWithARecordAt( late ), Readings( 6, late ) );
}

} // namespace
