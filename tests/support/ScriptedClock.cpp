// The replaced steady clock.
#include <support/ScriptedClock.h>

#include <support/ScriptedLog.h>

#include <chrono>
#include <ctime>
#include <utility>

namespace SodrelTest {

namespace {

// Null while the real clock is in use.
std::deque< std::int64_t > readings;

} // namespace

ScriptedClock::ScriptedClock() {
   readings = { 1'000'000'000'000 };
}

ScriptedClock::~ScriptedClock() {
   readings.clear();
}

void ScriptedClock::readingsAre( std::deque< std::int64_t > nanoseconds ) {
   readings = std::move( nanoseconds );
}

void clockMoves( std::uint64_t microseconds ) {
   if( readings.size() == 1 ) {
      readings.front() += static_cast< std::int64_t >( microseconds * 1000 );
   }
}

} // namespace SodrelTest

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
   using SodrelTest::readings;
   if( readings.empty() ) {
      timespec real{};
      clock_gettime( CLOCK_MONOTONIC, &real );
      return time_point( seconds( real.tv_sec ) + nanoseconds( real.tv_nsec ) );
   }
   const SodrelTest::UnwatchedMemory unwatched;
   SodrelTest::logLine( "steady_clock::now()" );
   const time_point now{ nanoseconds( readings.front() ) };
   if( readings.size() > 1 ) {
      readings.pop_front();
   }
   return now;
}
