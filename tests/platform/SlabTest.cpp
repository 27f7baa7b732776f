// The blocks of the slab allocator: what they are, where they go, and what happens between threads.
#include <platform/memory/Slab.h>
#include <platform/memory/SlabMemory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <limits>
#include <new>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// The memory that slabs are made of, in bytes, and the mapping that is to fail.
std::atomic< std::size_t > bytesMapped = 0;
constexpr int noFailure = std::numeric_limits< int >::max();
std::atomic< int > mappingsBeforeFailure = noFailure;
std::atomic< bool > failsEverAfter = false;
std::atomic< int > failures = 0;
std::atomic< bool > threadStateRefused = false;
std::atomic< bool > heapRefused = false;

bool mappingFails() {
   const int before = mappingsBeforeFailure--;
   const bool fails = before == 0 || ( before < 0 && failsEverAfter );
   failures += fails ? 1 : 0;
   return fails;
}

} // namespace

// The linker leads the allocator's calls here.
extern "C" {
void* __real_mmap( void*, std::size_t, int, int, int, off_t );
int __real_munmap( void*, std::size_t );
int __real_pthread_setspecific( pthread_key_t, const void* );

void* __wrap_mmap( void* where, std::size_t size, int access, int flags, int file, off_t offset ) {
   if( mappingFails() ) {
      return MAP_FAILED;
   }
   bytesMapped += size;
   return __real_mmap( where, size, access, flags, file, offset );
}

int __wrap_munmap( void* where, std::size_t size ) {
   bytesMapped -= size;
   return __real_munmap( where, size );
}

int __wrap_pthread_setspecific( pthread_key_t key, const void* value ) {
   return threadStateRefused ? 1 : __real_pthread_setspecific( key, value );
}

void* __real__ZnwmSt11align_val_tRKSt9nothrow_t(
   std::size_t, std::align_val_t, const std::nothrow_t& ) noexcept;

void* __wrap__ZnwmSt11align_val_tRKSt9nothrow_t(
   std::size_t size, std::align_val_t alignment, const std::nothrow_t& none ) noexcept {
   return heapRefused ? nullptr
                      : __real__ZnwmSt11align_val_tRKSt9nothrow_t( size, alignment, none );
}
}

namespace {

using Tessel::slabAlloc;
using Tessel::slabStats;

constexpr std::size_t slabBytes = 64 * 1024;
constexpr std::size_t reserveCount = 16;
constexpr std::size_t entityBytes = 64;
constexpr std::size_t blocksPerSlab = ( slabBytes - entityBytes ) / entityBytes;
// More than the reserve can hold.
constexpr std::size_t many = 30 * slabBytes / entityBytes;

struct Thing {};

void slabFree( void* block ) {
   Tessel::slabFree( block, typeid( Thing ) );
}

std::vector< void* > blocks( std::size_t count, std::size_t size = entityBytes ) {
   std::vector< void* > result;
   for( std::size_t i = 0; i < count; ++i ) {
      result.push_back( slabAlloc( size ) );
   }
   return result;
}

void freeAll( const std::vector< void* >& taken ) {
   for( void* const block : taken ) {
      slabFree( block );
   }
}

void inThread( const std::function< void() >& work ) {
   std::thread( work ).join();
}

// Runs work in a child; whether the child came to its end with work returning true.
bool inChild( const std::function< bool() >& work ) {
   const pid_t child = fork();
   if( child == 0 ) {
      _exit( work() ? 0 : 1 );
   }
   int status = -1;
   return waitpid( child, &status, 0 ) == child && WIFEXITED( status ) &&
          WEXITSTATUS( status ) == 0;
}

// The classes' boundaries and their neighbours, and those of blocks with slabs of their own.
std::vector< std::size_t > boundarySizes() {
   std::vector< std::size_t > sizes{ 0 };
   for( std::size_t boundary = 16; boundary <= 1024; boundary += 16 ) {
      sizes.insert( sizes.end(), { boundary - 1, boundary, boundary + 1 } );
   }
   for( const std::size_t boundary : { slabBytes - 64, slabBytes, 3 * slabBytes - 64 } ) {
      sizes.insert( sizes.end(), { boundary - 1, boundary, boundary + 1 } );
   }
   return sizes;
}

class ASlabBlock : public testing::Test {};

TEST_F( ASlabBlock, isAlignedForEveryTypeAndHasItsWholeSize ) {
   struct Taken {
      unsigned char* block;
      std::size_t size;
      unsigned char pattern;
   };
   std::vector< Taken > taken;
   unsigned char pattern = 0;
   for( const std::size_t size : boundarySizes() ) {
      for( int i = 0; i < 3; ++i ) {
         auto* const block = static_cast< unsigned char* >( slabAlloc( size ) );
         ASSERT_NE( block, nullptr ) << size;
         EXPECT_EQ( reinterpret_cast< std::uintptr_t >( block ) % alignof( std::max_align_t ), 0 )
            << size;
         std::memset( block, ++pattern, size );
         taken.push_back( { block, size, pattern } );
      }
   }
   for( const Taken& each : taken ) {
      const std::string expected( each.size, static_cast< char >( each.pattern ) );
      EXPECT_EQ( std::memcmp( each.block, expected.data(), each.size ), 0 ) << each.size;
      slabFree( each.block );
   }
}

TEST_F( ASlabBlock, isUsedAgainAfterItsRelease ) {
   slabFree( slabAlloc( entityBytes ) );
   const std::size_t slabs = slabStats().slabsMapped;
   for( std::size_t i = 0; i < 10 * many; ++i ) {
      slabFree( slabAlloc( entityBytes ) );
   }
   EXPECT_EQ( slabStats().slabsMapped, slabs );
}

TEST_F( ASlabBlock, isUsedAgainInASlabThatWasFull ) {
   std::vector< void* > taken = blocks( many );
   const std::size_t slabs = slabStats().slabsMapped;
   for( std::size_t round = 0; round < 3; ++round ) {
      for( std::size_t i = 0; i < taken.size(); i += 2 ) {
         slabFree( taken[i] );
      }
      for( std::size_t i = 0; i < taken.size(); i += 2 ) {
         taken[i] = slabAlloc( entityBytes );
      }
   }
   EXPECT_EQ( slabStats().slabsMapped, slabs );
   freeAll( taken );
}

TEST_F( ASlabBlock, thatIsNoneEndsTheProcess ) {
   alignas( slabBytes ) static char memory[2 * slabBytes];
   char* const foreign = memory + 128;
   char text[200];
   snprintf(
      text, sizeof( text ), "^slabFree: %p is no live block of \\(anonymous namespace\\)::Thing\n$",
      static_cast< void* >( foreign ) );
   EXPECT_DEATH( slabFree( foreign ), text );
}

#if !defined( NDEBUG ) || defined( TESSEL_ASAN )
TEST_F( ASlabBlock, freedTwiceInARowEndsTheProcess ) {
   void* const block = slabAlloc( entityBytes );
   slabFree( block );
   char text[200];
   snprintf(
      text, sizeof( text ), "^slabFree: %p is no live block of \\(anonymous namespace\\)::Thing\n$",
      block );
   EXPECT_DEATH( slabFree( block ), text );
}
#endif

#ifdef TESSEL_ASAN
TEST_F( ASlabBlock, isGuardedByTheAddressSanitizerWhileFree ) {
   auto* const own = static_cast< volatile char* >( slabAlloc( entityBytes ) );
   slabFree( const_cast< char* >( own ) );
   EXPECT_DEATH( static_cast< void >( own[entityBytes - 1] ), "use-after-poison" );

   auto* const returned = static_cast< volatile char* >( slabAlloc( entityBytes ) );
   inThread( [returned] { slabFree( const_cast< char* >( returned ) ); } );
   EXPECT_DEATH( static_cast< void >( returned[0] ), "use-after-poison" );
}
#endif

class TheSlabAllocator : public testing::Test {
 protected:
   ~TheSlabAllocator() override {
      // Whatever a test does, each slab is mapped whole and nothing else is.
      EXPECT_EQ( bytesMapped.load(), slabStats().slabsMapped * slabBytes );
   }
};

TEST_F( TheSlabAllocator, givesEmptySlabsBackToTheSystem ) {
   const std::size_t before = slabStats().slabsMapped;
   for( const bool forward : { true, false } ) {
      std::vector< void* > taken = blocks( many );
      EXPECT_GT( slabStats().slabsMapped, 29 );
      if( forward ) {
         std::reverse( taken.begin(), taken.end() );
      }
      freeAll( taken );
      EXPECT_LE( slabStats().slabsMapped, before + reserveCount + 1 );
   }
}

TEST_F( TheSlabAllocator, keepsSomeEmptySlabsInReserve ) {
   // Until no slab has room but the one that is mapped for the last block.
   std::vector< void* > taken;
   const std::size_t before = slabStats().slabsMapped;
   while( slabStats().slabsMapped == before ) {
      taken.push_back( slabAlloc( entityBytes ) );
   }
   freeAll( blocks( many, 2 * entityBytes ) );
   const std::size_t full = slabStats().slabsMapped;
   const std::vector< void* > more = blocks( blocksPerSlab - 1 + reserveCount * blocksPerSlab );
   EXPECT_EQ( slabStats().slabsMapped, full );
   taken.push_back( slabAlloc( entityBytes ) );
   EXPECT_EQ( slabStats().slabsMapped, full + 1 );
   freeAll( taken );
   freeAll( more );
}

TEST_F( TheSlabAllocator, givesALargeBlockBackAtOnce ) {
   const std::size_t before = bytesMapped;
   for( const std::size_t slabs : { 1, 10 } ) {
      void* const block = slabAlloc( slabs == 1 ? 1025 : slabs * slabBytes - 64 );
      EXPECT_EQ( bytesMapped, before + slabs * slabBytes );
      slabFree( block );
      EXPECT_EQ( bytesMapped, before );
   }
}

TEST_F( TheSlabAllocator, hasNoBlockOfAnImpossibleSize ) {
   constexpr std::size_t largest = std::numeric_limits< std::size_t >::max();
   for( const std::size_t size : { largest, largest - 64, largest - slabBytes, largest / 2 } ) {
      EXPECT_EQ( slabAlloc( size ), nullptr ) << size;
   }
}

TEST_F( TheSlabAllocator, returnsNullWhenAnyOfItsMappingsFails ) {
   // A thread of its own begins with nothing but the reserve, which many blocks exceed.
   const std::size_t before = slabStats().slabsMapped;
   inThread( [] {
      for( const bool everAfter : { false, true } ) {
         for( int n = 0;; ++n ) {
            failsEverAfter = everAfter;
            mappingsBeforeFailure = n;
            failures = 0;
            std::vector< void* > taken;
            int nulls = 0;
            for( std::size_t i = 0; i < many; ++i ) {
               void* const block = slabAlloc( entityBytes * ( 1 + i % 3 ) );
               nulls += block == nullptr ? 1 : 0;
               if( block != nullptr ) {
                  std::memset( block, 0xff, entityBytes );
                  taken.push_back( block );
               }
            }
            mappingsBeforeFailure = noFailure;
            EXPECT_EQ( nulls, failures ) << n;
            freeAll( taken );
            if( failures == 0 ) {
               EXPECT_GT( n, 0 );
               break;
            }
         }
      }
   } );
   EXPECT_LE( slabStats().slabsMapped, before + reserveCount );
}

TEST_F( TheSlabAllocator, returnsNullWhenTheThreadsEndCannotBeSeen ) {
   inThread( [] {
      threadStateRefused = true;
      EXPECT_EQ( slabAlloc( entityBytes ), nullptr );
      threadStateRefused = false;
      void* const block = slabAlloc( entityBytes );
      EXPECT_NE( block, nullptr );
      slabFree( block );
   } );
}

TEST_F( TheSlabAllocator, losesNoHeapWhenTheThreadsEndCannotBeSeen ) {
   inThread( [] {
      threadStateRefused = true;
      // More often than there are heaps that ended threads have left.
      for( int i = 0; i < 200; ++i ) {
         EXPECT_EQ( slabAlloc( entityBytes ), nullptr );
      }
      threadStateRefused = false;
      heapRefused = true;
      void* const block = slabAlloc( entityBytes );
      heapRefused = false;
      ASSERT_NE( block, nullptr );
      slabFree( block );
   } );
}

// Threads that each keep the heap that they have as long as this lives.
class HeapKeepers {
 public:
   HeapKeepers() = default;
   ~HeapKeepers() {
      end_.set_value();
      for( std::thread& thread : threads_ ) {
         thread.join();
      }
   }
   HeapKeepers( const HeapKeepers& ) = delete;
   HeapKeepers& operator=( const HeapKeepers& ) = delete;

   // Whether one more thread got a heap.
   bool more() {
      std::promise< bool > has;
      threads_.emplace_back( [&has, ended = ended_] {
         void* const block = slabAlloc( entityBytes );
         has.set_value( block != nullptr );
         ended.wait();
         if( block ) {
            slabFree( block );
         }
      } );
      return has.get_future().get();
   }
   // The heaps that ended threads have left.
   void takeAllThatAreLeft() {
      heapRefused = true;
      while( more() ) {
      }
      heapRefused = false;
   }

 private:
   std::promise< void > end_;
   std::shared_future< void > ended_ = end_.get_future();
   std::vector< std::thread > threads_;
};

TEST_F( TheSlabAllocator, returnsNullWithoutMemoryForAThreadsHeap ) {
   HeapKeepers keepers;
   keepers.takeAllThatAreLeft();
   EXPECT_TRUE( keepers.more() );
   heapRefused = true;
   EXPECT_FALSE( keepers.more() );
   heapRefused = false;
}

class SlabsOfAThread : public TheSlabAllocator {};

TEST_F( SlabsOfAThread, takeBackWhatOtherThreadsFree ) {
   // Without a block to spare, so that one that is lost takes another slab.
   constexpr std::size_t wholeSlabs = 30 * blocksPerSlab;
   freeAll( blocks( wholeSlabs ) );
   std::size_t most = 0;
   for( int round = 0; round < 10; ++round ) {
      const std::vector< void* > taken = blocks( wholeSlabs );
      if( round == 0 ) {
         most = slabStats().slabsMapped;
      }
      EXPECT_LE( slabStats().slabsMapped, most );
      const auto half = taken.begin() + wholeSlabs / 2;
      std::barrier atOnce( 2 );
      const std::jthread other( [&] {
         atOnce.arrive_and_wait();
         freeAll( { half, taken.end() } );
      } );
      inThread( [&] {
         atOnce.arrive_and_wait();
         freeAll( { taken.begin(), half } );
      } );
   }
}

TEST_F( SlabsOfAThread, takeBackWhatComesWhileItEnds ) {
   const std::size_t before = slabStats().slabsMapped;
   for( int round = 0; round < 100; ++round ) {
      std::vector< void* > taken;
      std::atomic< bool > given = false;
      const std::jthread ending( [&] {
         taken = blocks( 3000 );
         given = true;
      } );
      // Not a wait, after which the thread would have come to its end.
      while( !given ) {
         std::this_thread::yield();
      }
      freeAll( taken );
   }
   EXPECT_LE( slabStats().slabsMapped, before + reserveCount );
}

TEST_F( SlabsOfAThread, goToTheSystemWhenItHasEndedAndTheLastBlockIsFreed ) {
   std::vector< void* > taken;
   inThread( [&taken] { taken = blocks( many ); } );
   const std::size_t full = slabStats().slabsMapped;
   freeAll( taken );
   EXPECT_LE( slabStats().slabsMapped, full - 30 + reserveCount );
}

TEST_F( SlabsOfAThread, serveTheNextThread ) {
   std::vector< void* > taken;
   std::size_t slabs = 0;
   for( int round = 0; round < 30; ++round ) {
      inThread( [&taken] {
         taken.push_back( slabAlloc( entityBytes ) );
         taken.push_back( slabAlloc( 3 * entityBytes ) );
      } );
      if( round == 0 ) {
         slabs = slabStats().slabsMapped;
      }
   }
   EXPECT_EQ( slabStats().slabsMapped, slabs );
   freeAll( taken );
}

TEST_F( SlabsOfAThread, serveTheNextThreadAlsoWhenTheyAreFull ) {
   std::vector< void* > taken;
   inThread( [&taken] { taken = blocks( blocksPerSlab ); } );
   inThread( [&taken] { taken.push_back( slabAlloc( entityBytes ) ); } );
   ASSERT_NE( taken.back(), nullptr );
   freeAll( taken );
}

// Runs something with a thread's last block at the thread's end.
void atTheEndOfAThread( void ( *run )( void* block ) ) {
   // Such a key's destructor runs after the allocator's own, whose key is older.
   slabFree( slabAlloc( entityBytes ) );
   pthread_key_t key{};
   ASSERT_EQ( pthread_key_create( &key, run ), 0 );
   inThread( [key] { __real_pthread_setspecific( key, slabAlloc( entityBytes ) ); } );
   pthread_key_delete( key );
}

TEST_F( SlabsOfAThread, canBeUsedWhileItEnds ) {
   static void* fresh = nullptr;
   atTheEndOfAThread( []( void* block ) {
      fresh = slabAlloc( entityBytes );
      slabFree( block );
   } );
   ASSERT_NE( fresh, nullptr );
   slabFree( fresh );
}

TEST_F( SlabsOfAThread, areAnothersOnceItHasLeftThem ) {
   static void* fresh = nullptr;
   // In the meantime other threads have taken the heap.
   atTheEndOfAThread( []( void* block ) {
      slabFree( block );
      HeapKeepers keepers;
      keepers.takeAllThatAreLeft();
      heapRefused = true;
      fresh = slabAlloc( entityBytes );
      heapRefused = false;
   } );
   EXPECT_EQ( fresh, nullptr );
}

// Eight threads pass blocks on through mailboxes and check that each block stays what it was.
TEST_F( SlabsOfAThread, handOutEachBlockToOneUserAtATime ) {
   struct Message {
      std::uint64_t sender;
      std::uint64_t again;
   };
   const std::size_t before = slabStats().slabsMapped;
   std::array< std::atomic< Message* >, 32 > mailboxes{};
   std::atomic< bool > damaged = false;
   const auto drop = [&damaged]( Message* message ) {
      if( message != nullptr ) {
         if( message->sender != message->again ) {
            damaged = true;
         }
         slabFree( message );
      }
   };
   for( int generation = 0; generation < 3; ++generation ) {
      std::vector< std::thread > threads;
      for( std::uint64_t sender = 1; sender <= 8; ++sender ) {
         threads.emplace_back( [&mailboxes, &drop, sender] {
            std::uint64_t random = sender;
            for( int i = 0; i < 20'000; ++i ) {
               random = random * 6364136223846793005U + 1442695040888963407U;
               const std::size_t size = 16 + ( random >> 40 ) % 300;
               void* const block = slabAlloc( size );
               Message* const message = new( block ) Message{ random, random };
               drop( mailboxes[( random >> 32 ) % mailboxes.size()].exchange( message ) );
            }
         } );
      }
      for( std::thread& thread : threads ) {
         thread.join();
      }
   }
   for( std::atomic< Message* >& mailbox : mailboxes ) {
      drop( mailbox.load() );
   }
   EXPECT_FALSE( damaged );
   EXPECT_LE( slabStats().slabsMapped, before + reserveCount );
}

TEST_F( SlabsOfAThread, canBeUsedInAChildProcess ) {
   struct Shared {
      void* block = nullptr;
      std::promise< void > taken;
      std::promise< void > end;
   } shared;
   void* const inherited = slabAlloc( entityBytes );
   // Not std::thread, whose own memory would be lost in the child.
   pthread_t other{};
   ASSERT_EQ(
      pthread_create(
         &other, nullptr,
         []( void* argument ) -> void* {
            auto& [block, taken, end] = *static_cast< Shared* >( argument );
            block = slabAlloc( entityBytes );
            taken.set_value();
            end.get_future().wait();
            slabFree( block );
            return nullptr;
         },
         &shared ),
      0 );
   shared.taken.get_future().wait();
   EXPECT_TRUE( inChild( [&] {
      const std::size_t before = slabStats().slabsMapped;
      slabFree( inherited );
      slabFree( shared.block );
      freeAll( blocks( many ) );
      return slabStats().slabsMapped <= before + reserveCount;
   } ) );
   shared.end.set_value();
   pthread_join( other, nullptr );
   slabFree( inherited );
}

} // namespace
