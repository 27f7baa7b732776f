// What tests of the slab allocator share: what it asks of the system, and many blocks.
#pragma once

#include <platform/memory/Slab.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <future>
#include <limits>
#include <thread>
#include <vector>

namespace PlatformTest {

// The memory that slabs are made of, in bytes.
extern std::atomic< std::size_t > bytesMapped;
// How many mappings succeed before one fails, whether all that follow fail too, and how many did.
inline constexpr int noFailure = std::numeric_limits< int >::max();
extern std::atomic< int > mappingsBeforeFailure;
extern std::atomic< bool > failsEverAfter;
extern std::atomic< int > failures;
// What the allocator is refused: to be told a thread's end, and memory for a thread's heap.
extern std::atomic< bool > threadStateRefused;
extern std::atomic< bool > heapRefused;

inline constexpr std::size_t slabBytes = 64 * 1024;
inline constexpr std::size_t reserveCount = 16;
inline constexpr std::size_t entityBytes = 64;

constexpr std::size_t blocksPerSlab( std::size_t size = entityBytes ) {
   constexpr std::size_t headBytes = 64;
   return ( slabBytes - headBytes ) / size;
}

// More than the reserve can hold.
inline constexpr std::size_t many = 30 * slabBytes / entityBytes;

using Blocks = std::vector< void* >;

// What all blocks are said to be.
struct Thing {};

void slabFree( void* block );
Blocks blocks( std::size_t count, std::size_t size = entityBytes );
void freeAll( const Blocks& taken );

void inThread( const std::function< void() >& work );

class TheSlabAllocator : public testing::Test {
 protected:
   // Whatever a test does, each slab is mapped whole and nothing else is.
   ~TheSlabAllocator() override;
};

// Threads that each keep the heap that they have as long as this lives.
class HeapKeepers {
 public:
   HeapKeepers() = default;
   ~HeapKeepers();
   HeapKeepers( const HeapKeepers& ) = delete;
   HeapKeepers& operator=( const HeapKeepers& ) = delete;

   // Whether one more thread got a heap.
   bool more();
   // The heaps that ended threads have left.
   void takeAllThatAreLeft();

 private:
   std::promise< void > end_;
   std::shared_future< void > ended_ = end_.get_future();
   std::vector< std::thread > threads_;
};

} // namespace PlatformTest
