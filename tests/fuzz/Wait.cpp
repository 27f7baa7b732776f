// The wait of a monitor with a fast clock.
#include "Wait.h"

#include <chrono>

namespace {

// Since the wait began.
int readings = 0;

} // namespace

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
   constexpr std::chrono::seconds limit( 600 );
   constexpr std::chrono::microseconds left( 1 );
   const nanoseconds reading[] = { nanoseconds( 0 ), limit - left, limit };
   return time_point( reading[std::min( readings++, 2 )] );
}

namespace SodrelTest {

std::string outcomeOfWait( Sodrel::SignalMonitor& monitor, const Object& object ) {
   readings = 0;
   return outcomeOf( [&] { return monitor.wait( object ) ? "true" : "false"; } );
}

} // namespace SodrelTest
