// The blocks of the slab allocator: size, alignment, reuse, out of memory, threads and forks.
#include "Threads.h"

#include <platform/memory/Slab.h>
#include <support/Abort.h>
#include <support/Memory.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <new>
#include <stop_token>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <typeinfo>
#include <unistd.h>
#include <vector>

namespace SodrelTest {

// The type that all blocks are passed as.
struct Thing {};

namespace {

using Tessel::slabAlloc;

// The sizes of a typical entity, and of one that is too large to be pooled.
constexpr std::size_t entityBytes = 64;
constexpr std::size_t largeBytes = 1100;

void slabFree( void* block ) {
   Tessel::slabFree( block, typeid( Thing ) );
}

int mappings() {
   std::ifstream maps( "/proc/self/maps" );
   int count = 0;
   for( std::string line; std::getline( maps, line ); ) {
      ++count;
   }
   return count;
}

auto noLiveBlock( const void* block ) {
   std::array< char, 100 > text{};
   std::snprintf(
      text.data(), text.size(), "^slabFree: %p is no live block of SodrelTest::Thing\n$", block );
   return beforeAbort( testing::ContainsRegex( text.data() ) );
}

TEST( ASlabBlock, isAlignedForEveryTypeAndHasItsWholeSize ) {
   struct Taken {
      void* block;
      std::string content;
   };
   std::vector< Taken > taken;
   for( std::size_t size = 0; size < 2100; ++size ) {
      for( int i = 0; i < 3; ++i ) {
         void* const block = slabAlloc( size );
         ASSERT_NE( block, nullptr ) << size;
         EXPECT_EQ( reinterpret_cast< std::uintptr_t >( block ) % 16, 0 ) << size;
         taken.push_back( { block, std::string( size, static_cast< char >( taken.size() ) ) } );
         std::memset( block, static_cast< char >( taken.size() - 1 ), size );
      }
   }
   for( const auto& [block, content] : taken ) {
      EXPECT_EQ( std::memcmp( block, content.data(), content.size() ), 0 ) << content.size();
      slabFree( block );
   }
}

TEST( ASlabBlock, isUsedAgainAfterItsRelease ) {
   const auto takeAndFree = [] {
      const WatchedMemory memory;
      for( const bool forward : { true, false } ) {
         std::vector< void* > taken( 10'000 );
         for( void*& block : taken ) {
            block = slabAlloc( entityBytes );
         }
         for( std::size_t i = 0; i < taken.size(); ++i ) {
            slabFree( taken[forward ? i : taken.size() - 1 - i] );
         }
      }
   };
   takeAndFree();
   const std::size_t before = watchedBlocks();
   for( int round = 0; round < 10; ++round ) {
      takeAndFree();
      inThreads( 1, takeAndFree );
   }
   EXPECT_EQ( watchedBlocks(), before );
}

TEST( ASlabBlock, ofLargeEntitiesNeedsNoMappingOfItsOwn ) {
   std::vector< void* > taken( 200'000 );
   const WatchedMemory memory;
   const std::size_t before = watchedBlocks();
   for( void*& block : taken ) {
      block = slabAlloc( largeBytes );
      ASSERT_NE( block, nullptr );
   }
   EXPECT_LT( mappings(), 20'000 );
   for( void* const block : taken ) {
      slabFree( block );
   }
   EXPECT_EQ( watchedBlocks(), before );
}

TEST( ASlabBlock, endsTheProcessWhenItIsNone ) {
   alignas( 16 ) std::array< std::byte, 128 > memory{};
   void* const foreign = &memory[64];
   EXPECT_DEATH( slabFree( foreign ), noLiveBlock( foreign ) );
}

TEST( ASlabBlock, endsTheProcessWhenItIsFreedTwice ) {
   void* const block = slabAlloc( entityBytes );
   slabFree( block );
#ifdef SODREL_TEST_ASAN
   EXPECT_DEATH( slabFree( block ), "heap-use-after-free" );
#else
   EXPECT_DEATH( slabFree( block ), noLiveBlock( block ) );
#endif
}

#ifdef SODREL_TEST_ASAN
TEST( ASlabBlock, isGuardedByTheAddressSanitizer ) {
   auto* const block = static_cast< volatile char* >( slabAlloc( entityBytes - 1 ) );
   EXPECT_DEATH( block[entityBytes - 1] = 1, "heap-buffer-overflow" );
   slabFree( const_cast< char* >( block ) );
   EXPECT_DEATH( block[0] = 1, "heap-use-after-free" );
}
#endif

// Under the address sanitizer no block comes from a slab.
#ifndef SODREL_TEST_ASAN
constexpr std::array< std::size_t, 9 > sizesInSlabs = { 0, 1, 16, 17, 33, 112, 240, 1007, 1008 };

// Takes blocks until operator new has been called `allocations` times and is needed once more.
std::vector< void* > allBlocks( std::size_t size, std::size_t allocations ) {
   std::vector< void* > taken;
   taken.reserve( 1'000'000 );
   const WatchedMemory memory( allocations + 1, true );
   while( void* const block = slabAlloc( size ) ) {
      taken.push_back( block );
   }
   return taken;
}

void freeAll( const std::vector< void* >& blocks ) {
   for( void* const block : blocks ) {
      slabFree( block );
   }
}

TEST( ASlab, isUsedUpToItsEnd ) {
   for( const std::size_t size : sizesInSlabs ) {
      const std::vector< void* > before = allBlocks( size, 0 );
      const std::vector< void* > ofOneSlab = allBlocks( size, 1 );
      // A block has a header of 16 bytes and ends at a multiple of 16.
      EXPECT_EQ( ofOneSlab.size(), 16384 / ( 16 + ( size + 15 ) / 16 * 16 ) ) << size;
      freeAll( before );
      freeAll( ofOneSlab );
   }
}

TEST( ASlab, keepsItsBlocksWhateverIsWrittenToThem ) {
   for( const std::size_t size : sizesInSlabs ) {
      const std::vector< void* > taken = allBlocks( size, 1 );
      for( void* const block : taken ) {
         std::memset( block, 0xff, size );
      }
      freeAll( taken );
      const std::vector< void* > again = allBlocks( size, 0 );
      EXPECT_EQ( again.size(), taken.size() ) << size;
      freeAll( again );
   }
}

TEST( ASlab, hasNoBlocksOfMoreThan1008Bytes ) {
   const std::vector< void* > taken = allBlocks( 1009, 3 );
   EXPECT_EQ( taken.size(), 3 );
   freeAll( taken );
   EXPECT_EQ( allBlocks( 1009, 0 ).size(), 0 );
}
#endif

TEST( TheSlabAllocator, hasNoBlockOfAnImpossibleSize ) {
   constexpr std::size_t largest = std::numeric_limits< std::size_t >::max();
   for( const std::size_t size : { largest, largest - 15, largest - 64, largest / 2 } ) {
      EXPECT_EQ( slabAlloc( size ), nullptr ) << size;
   }
}

TEST( TheSlabAllocator, returnsNullWhenAnyAllocationFails ) {
   std::vector< void* > taken;
   taken.reserve( 1'000'000 );
   for( const std::size_t size : { entityBytes, largeBytes } ) {
      for( const bool forEver : { false, true } ) {
         for( std::size_t number = 1; number <= 6; ++number ) {
            {
               const WatchedMemory memory( number, forEver );
               while( void* const block = slabAlloc( size ) ) {
                  taken.push_back( block );
               }
               EXPECT_EQ( memory.failures(), 1 ) << number;
               void* const next = slabAlloc( size );
               EXPECT_EQ( next == nullptr, forEver ) << number;
               if( next ) {
                  taken.push_back( next );
               }
            }
            taken.push_back( slabAlloc( size ) );
            ASSERT_NE( taken.back(), nullptr ) << number;
         }
      }
   }
   for( void* const block : taken ) {
      slabFree( block );
   }
}

TEST( TheSlabAllocator, canBeUsedWhileAThreadEnds ) {
   struct Last {
      ~Last() {
         slabFree( block );
         slabFree( slabAlloc( entityBytes ) );
      }
      void* block = slabAlloc( entityBytes );
   };
   inThreads( 1, [] { static thread_local const Last last; } );
}

TEST( TheSlabAllocator, canBeUsedDuringStaticDestruction ) {
   struct Last {
      ~Last() {
         slabFree( block );
         slabFree( slabAlloc( largeBytes ) );
         std::fputs( "destroyed\n", stderr );
      }
      void* block = slabAlloc( entityBytes );
   };
   EXPECT_EXIT(
      {
         static const Last last;
         std::exit( 0 );
      },
      testing::ExitedWithCode( 0 ), "^destroyed\n$" );
}

// Eight threads exchange blocks through mailboxes and check that each block keeps its contents.
TEST( TheSlabAllocator, handsOutEachBlockToOneUserAtATime ) {
   struct Message {
      std::uint64_t sender;
      std::uint64_t again;
   };
   std::array< std::atomic< Message* >, 32 > mailboxes{};
   std::atomic< std::uint64_t > senders = 0;
   const auto drop = []( Message* message ) {
      if( message ) {
         EXPECT_EQ( message->sender, message->again );
         slabFree( message );
      }
   };
   inThreads( 8, [&] {
      std::uint64_t random = ++senders;
      for( int i = 0; i < 20'000; ++i ) {
         random = random * 6364136223846793005U + 1442695040888963407U;
         const auto more = static_cast< std::size_t >( ( random >> 40 ) % 1'200 );
         void* const block = slabAlloc( sizeof( Message ) + more );
         drop(
            mailboxes[( random >> 32 ) % 32].exchange( new( block ) Message{ random, random } ) );
      }
   } );
   for( std::atomic< Message* >& mailbox : mailboxes ) {
      drop( mailbox );
   }
}

// The address sanitizer's own allocator does not survive a fork while other threads allocate.
#ifndef SODREL_TEST_ASAN
TEST( TheSlabAllocator, canBeUsedInAChildForkedWhileOtherThreadsAllocate ) {
   void* const inherited = slabAlloc( entityBytes );
   std::vector< std::jthread > others;
   for( int i = 0; i < 3; ++i ) {
      others.emplace_back( []( const std::stop_token& end ) {
         while( !end.stop_requested() ) {
            slabFree( slabAlloc( entityBytes ) );
         }
      } );
   }
   for( int round = 0; round < 20; ++round ) {
      const pid_t child = fork();
      if( child == 0 ) {
         alarm( 30 ); // ends a child that is stuck on a lock
         slabFree( inherited );
         slabFree( slabAlloc( entityBytes ) );
         _exit( 0 );
      }
      int status = -1;
      ASSERT_EQ( waitpid( child, &status, 0 ), child );
      ASSERT_EQ( status, 0 );
   }
   slabFree( inherited );
}
#endif

} // namespace
} // namespace SodrelTest
