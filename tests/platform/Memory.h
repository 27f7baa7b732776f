// What tests do to memory: operator new fails when told to, and its blocks are counted.
#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace SodrelTest {

// While one exists, an allocation by this thread fails after `before` others: once, or that one and
// all later ones.
class MemoryFailure {
 public:
   explicit MemoryFailure( std::size_t before, bool forEver = false );
   ~MemoryFailure();
   MemoryFailure( const MemoryFailure& ) = delete;
   MemoryFailure& operator=( const MemoryFailure& ) = delete;

   // How many allocations have failed.
   [[nodiscard]] std::size_t count() const;
};

// Runs once, within this thread's next allocation.
extern thread_local void ( *duringAllocation )();

// How many blocks of operator new exist.
std::size_t blocksAllocated();

// Runs work in so many threads at once and waits for their end.
inline void inThreads( std::size_t count, const std::function< void() >& work ) {
   std::vector< std::jthread > threads;
   while( threads.size() < count ) {
      threads.emplace_back( work );
   }
}

} // namespace SodrelTest
