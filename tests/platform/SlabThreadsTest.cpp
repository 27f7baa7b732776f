// Slabs between threads: blocks that others free, threads that end, and a process that forks.
#include "Slabs.h"

#include <platform/memory/Slab.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <new>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace PlatformTest {
namespace {

using Tessel::slabAlloc;
using Tessel::slabStats;

class SlabsOfAThread : public TheSlabAllocator {};

TEST_F( SlabsOfAThread, takeBackWhatOtherThreadsFree ) {
   // Without a block to spare, so that one that is lost takes another slab.
   constexpr std::size_t wholeSlabs = 30 * blocksPerSlab();
   freeAll( blocks( wholeSlabs ) );
   std::size_t most = 0;
   for( int round = 0; round < 10; ++round ) {
      const Blocks taken = blocks( wholeSlabs );
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
   freeAll( blocks( many ) ); // fills the reserve
   const std::size_t before = slabStats().slabsMapped;
   for( int round = 0; round < 100; ++round ) {
      Blocks taken;
      std::atomic< bool > given = false;
      const std::jthread ending( [&] {
         // With blocks at hand in each class, the end takes longer.
         for( std::size_t size = 16; size <= 1024; size += 16 ) {
            slabFree( slabAlloc( size ) );
         }
         taken = blocks( 3000 );
         given = true;
      } );
      // Not a wait, after which the thread would have come to its end.
      while( !given ) {
         std::this_thread::yield();
      }
      freeAll( taken );
   }
   EXPECT_LE( slabStats().slabsMapped, before );
}

TEST_F( SlabsOfAThread, goToTheSystemWhenItHasEndedAndTheLastBlockIsFreed ) {
   Blocks taken;
   inThread( [&taken] { taken = blocks( many ); } );
   const std::size_t full = slabStats().slabsMapped;
   freeAll( taken );
   EXPECT_LE( slabStats().slabsMapped, full - 30 + reserveCount );
}

TEST_F( SlabsOfAThread, serveTheNextThread ) {
   Blocks taken;
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
   Blocks taken;
   inThread( [&taken] { taken = blocks( blocksPerSlab() ); } );
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
   inThread( [key] { pthread_setspecific( key, slabAlloc( entityBytes ) ); } );
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
} // namespace PlatformTest
