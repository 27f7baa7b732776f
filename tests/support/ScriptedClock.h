// A scripted steady clock: std::chrono::steady_clock::now() is replaced by name.
#pragma once

#include <cstdint>
#include <deque>

namespace SodrelTest {

// While one exists, the steady clock shows what it says, and each reading is logged. It stands
// still unless it is moved.
class ScriptedClock {
 public:
   ScriptedClock();
   ~ScriptedClock();
   ScriptedClock( const ScriptedClock& ) = delete;
   ScriptedClock& operator=( const ScriptedClock& ) = delete;

   // The next readings, in nanoseconds; the clock stands still at the last of them.
   void readingsAre( std::deque< std::int64_t > nanoseconds );
   // Moves the clock where it stands still.
   void advance( std::uint64_t microseconds );

   std::int64_t read();

 private:
   std::deque< std::int64_t > readings_{ 1'000'000'000'000 };
};

// The clock that exists; null when the real one is shown.
ScriptedClock* scriptedClock();

} // namespace SodrelTest
