// Traces by clocks that stand: the time in a line, and when a file is told the clocks.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <string>
#include <thread>
#include <utility>

namespace {

timespec now{};
std::int64_t monotonic = 0; // nanoseconds
// What the monotonic clock shows before that.
std::deque< std::int64_t > upcoming;

constexpr std::int64_t second = 1'000'000'000;

} // namespace

// The linker leads the calls of the trace's objects here.
extern "C" int __wrap_clock_gettime( clockid_t clock, timespec* time ) {
   if( clock != CLOCK_MONOTONIC ) {
      *time = now;
      return 0;
   }
   std::int64_t shown = monotonic;
   if( !upcoming.empty() ) {
      shown = upcoming.front();
      upcoming.pop_front();
   }
   *time = { static_cast< std::time_t >( shown / second ), static_cast< long >( shown % second ) };
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

   // The number of readings and the last of them after one record more.
   std::pair< std::uint64_t, Fennet::ClockReading > readingsWithARecord() {
      Fennet::RingBuf ring;
      ring.startMsg( *handle_.mtTraceFile(), 1 );
      ring.endMsg();
      const auto header = folder_.header();
      const std::uint64_t number = header->readings;
      const Fennet::ClockReading& last = header->recent[number % 2];
      EXPECT_EQ( last.realtime, now.tv_sec * second + now.tv_nsec );
      return { number, last };
   }
   // The number of readings and the monotonic time of the last after a record at this time.
   std::pair< std::uint64_t, std::int64_t > readingsWithARecordAt( std::int64_t time ) {
      monotonic = time;
      const auto [number, last] = readingsWithARecord();
      EXPECT_EQ( last.ticks, static_cast< std::uint64_t >( last.monotonic ) );
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

struct Attempts {
   std::array< std::int64_t, 4 > widths; // nanoseconds
   std::size_t tightest;
};
class AReadingOfTheClocks : public AFileByTheClocks,
                            public testing::WithParamInterface< Attempts > {};

TEST_P( AReadingOfTheClocks, isTheTightestOfFour ) {
   monotonic = start;
   readingsWithARecord();
   const auto begin = [&]( std::size_t attempt ) {
      return start + second + static_cast< std::int64_t >( 1000 * attempt );
   };
   upcoming = { start + second };
   for( std::size_t attempt = 0; attempt < 4; ++attempt ) {
      const std::int64_t at = begin( attempt );
      upcoming.insert( upcoming.end(), { at, at + 1, at + GetParam().widths[attempt] } );
   }
   const Fennet::ClockReading reading = readingsWithARecord().second;
   const std::int64_t expected = begin( GetParam().tightest );
   const std::int64_t width = GetParam().widths[GetParam().tightest];
   EXPECT_EQ( reading.ticks, static_cast< std::uint64_t >( expected + width / 2 ) );
   EXPECT_EQ( reading.monotonic, expected + 1 );
}

INSTANTIATE_TEST_SUITE_P(
   , AReadingOfTheClocks,
   testing::Values( Attempts{ { 40, 20, 10, 4 }, 3 }, Attempts{ { 40, 4, 4, 10 }, 1 } ) );

} // namespace
