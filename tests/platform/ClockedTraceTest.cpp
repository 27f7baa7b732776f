// Traces by clocks that stand: the time in a line, and when a file is told the clocks.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <thread>

namespace {

timespec now{};
std::int64_t monotonic = 0; // nanoseconds

constexpr std::int64_t second = 1'000'000'000;

} // namespace

// The linker leads the calls of the trace's objects here.
extern "C" int __wrap_clock_gettime( clockid_t clock, timespec* time ) {
   if( clock != CLOCK_MONOTONIC ) {
      *time = now;
      return 0;
   }
   *time = { static_cast< std::time_t >( monotonic / second ),
             static_cast< long >( monotonic % second ) };
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
   void traceAt( std::int64_t time ) {
      monotonic = time;
      TRACE( 8, "" );
   }

   const Fennet::TraceFolder folder;
   const Fennet::DefaultHandle handle{ folder };
};

TEST_F( AFileByTheClocks, hasBothReadingsOfItsBeginning ) {
   now = { 1'000'000'000, 7 };
   traceAt( 5 * second );
   const auto header = folder.header();
   EXPECT_EQ( header->clockPairs, 1U );
   EXPECT_EQ( header->clocks[1].monotonic, 5 * second );
   EXPECT_EQ( header->clocks[1].realtime, 1'000'000'000 * second + 7 );
   EXPECT_EQ( folder.records().at( 0 ).time, 1'000'000'000 * second + 7 );
}

TEST_F( AFileByTheClocks, hasNewReadingsEveryTimeAThirtySecondOfItsRingIsFull ) {
   now = { 1'000'000'000, 0 };
   traceAt( second );
   now = { 2'000'000'000, 0 };
   // 16 bytes each.
   for( int record = 1; record < 128; ++record ) {
      traceAt( 2 * second );
   }
   EXPECT_EQ( folder.header()->clockPairs, 1U );
   traceAt( 3 * second );
   const auto header = folder.header();
   EXPECT_EQ( header->clockPairs, 2U );
   EXPECT_EQ( header->clocks[0].monotonic, 3 * second );
   EXPECT_EQ( header->clocks[0].realtime, 2'000'000'000 * second );
   EXPECT_EQ( header->clocks[1].monotonic, second );
   // The latest pair serves all records.
   EXPECT_EQ( folder.records().at( 0 ).time, 1'999'999'998 * second );
}

} // namespace
