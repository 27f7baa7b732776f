// The time in a trace's line, to its last digit.
#include <platform/trace/Trace.h>

#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace {

timespec now{};

} // namespace

// The linker leads the calls of the trace's objects here.
extern "C" int __wrap_clock_gettime( clockid_t, timespec* time ) {
   *time = now;
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

} // namespace
