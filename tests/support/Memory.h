// What tests do to memory: operator new is replaced, so that what it allocates can be counted and
// can fail.
#pragma once

#include <cstddef>

namespace SodrelTest {

// While one exists, what its thread allocates is watched: counted, and made to fail.
class WatchedMemory {
 public:
   // The allocation with that number, from 1, fails; with `forEver` all later ones too. 0: none.
   explicit WatchedMemory( std::size_t failing = 0, bool forEver = false );
   ~WatchedMemory();
   WatchedMemory( const WatchedMemory& ) = delete;
   WatchedMemory& operator=( const WatchedMemory& ) = delete;

   // How many allocations have failed.
   [[nodiscard]] std::size_t failures() const;
};

// While one exists, this thread's allocations are not watched: those of replaced functions and of
// the tests. With `again` they are: those of what the replaced functions call back.
class UnwatchedMemory {
 public:
   explicit UnwatchedMemory( bool again = false );
   ~UnwatchedMemory();
   UnwatchedMemory( const UnwatchedMemory& ) = delete;
   UnwatchedMemory& operator=( const UnwatchedMemory& ) = delete;

 private:
   const bool before_;
};

// The blocks that were allocated under watch, by any thread, and have not been released.
std::size_t watchedBlocks();

// Counts an allocation of the calling thread if it is watched, and returns whether it must fail:
// for allocators that stand beside operator new.
bool allocationFails();

// Runs once, within this thread's next allocation.
extern thread_local void ( *duringAllocation )();

} // namespace SodrelTest
