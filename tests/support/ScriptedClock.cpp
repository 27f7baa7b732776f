// The replaced steady clock.
#include <support/ScriptedClock.h>

#include <support/ScriptedLog.h>

#include <chrono>
#include <ctime>
#include <utility>

namespace SodrelTest {

namespace {

ScriptedClock* current = nullptr;

} // namespace

ScriptedClock::ScriptedClock() {
   current = this;
}

ScriptedClock::~ScriptedClock() {
   current = nullptr;
}

void ScriptedClock::readingsAre( std::deque< std::int64_t > nanoseconds ) {
   readings_ = std::move( nanoseconds );
}

void ScriptedClock::advance( std::uint64_t microseconds ) {
   if( readings_.size() == 1 ) {
      readings_.front() += static_cast< std::int64_t >( microseconds * 1000 );
   }
}

std::int64_t ScriptedClock::read() {
   const NotLibrary notLibrary;
   logLine( "steady_clock::now()" );
   const std::int64_t reading = readings_.front();
   if( readings_.size() > 1 ) {
      readings_.pop_front();
   }
   return reading;
}

ScriptedClock* scriptedClock() {
   return current;
}

} // namespace SodrelTest

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
   if( auto* const scripted = SodrelTest::scriptedClock() ) {
      return time_point( nanoseconds( scripted->read() ) );
   }
   timespec real{};
   clock_gettime( CLOCK_MONOTONIC, &real );
   return time_point( seconds( real.tv_sec ) + nanoseconds( real.tv_nsec ) );
}
