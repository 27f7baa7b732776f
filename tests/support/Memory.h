// Replaces operator new, so that tests can count allocations and make them fail.
#pragma once

#include <cstddef>

namespace SodrelTest {

// While one exists, the allocations of its thread are watched: they are counted, and can be made to
// fail.
class WatchedMemory {
 public:
   // The allocation with that number, counted from 1, fails; with `forEver`, all later ones fail
   // too. 0: none fails.
   explicit WatchedMemory( std::size_t failing = 0, bool forEver = false );
   ~WatchedMemory();
   WatchedMemory( const WatchedMemory& ) = delete;
   WatchedMemory& operator=( const WatchedMemory& ) = delete;

   // Returns the number of failed allocations.
   [[nodiscard]] std::size_t failures() const;
};

// While one exists, this thread's allocations are not watched: those of replaced functions and of
// the tests. With `again` they are, for callbacks of the replaced functions.
class UnwatchedMemory {
 public:
   explicit UnwatchedMemory( bool again = false );
   ~UnwatchedMemory();
   UnwatchedMemory( const UnwatchedMemory& ) = delete;
   UnwatchedMemory& operator=( const UnwatchedMemory& ) = delete;

 private:
   const bool before_;
};

// Returns the number of blocks that were watched when allocated, by any thread, and not released.
std::size_t watchedBlocks();

// Counts an allocation of the calling thread if it is watched, and returns whether it must fail:
// for allocators other than operator new.
bool allocationFails();

// Runs once, within this thread's next allocation.
extern thread_local void ( *duringAllocation )();

} // namespace SodrelTest
