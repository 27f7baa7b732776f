// A scripted steady clock: std::chrono::steady_clock::now() is replaced by name.
#pragma once

#include <cstdint>
#include <deque>

namespace SodrelTest {

// While one exists, it provides the time of the steady clock, and each reading is logged. The clock
// stands still unless it is moved.
class ScriptedClock {
 public:
   ScriptedClock();
   ~ScriptedClock();
   ScriptedClock( const ScriptedClock& ) = delete;
   ScriptedClock& operator=( const ScriptedClock& ) = delete;

   // The next readings, in nanoseconds; the clock stands still at the last of them.
   void readingsAre( std::deque< std::int64_t > nanoseconds );
};

// Moves the scripted clock while it stands still.
void clockMoves( std::uint64_t microseconds );

} // namespace SodrelTest
