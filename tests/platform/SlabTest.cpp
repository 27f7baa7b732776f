// The blocks of the slab allocator: what they are, where they come from, and where they go.
#include "Slabs.h"

#include <platform/memory/Slab.h>
#include <platform/memory/SlabMemory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace PlatformTest {
namespace {

using Tessel::slabAlloc;
using Tessel::slabStats;

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
   Blocks taken = blocks( many );
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
      text, sizeof( text ), "^slabFree: %p is no live block of PlatformTest::Thing\n$",
      static_cast< void* >( foreign ) );
   EXPECT_DEATH( slabFree( foreign ), text );
}

#if !defined( NDEBUG ) || defined( TESSEL_ASAN )
TEST_F( ASlabBlock, freedTwiceInARowEndsTheProcess ) {
   void* const block = slabAlloc( entityBytes );
   slabFree( block );
   char text[200];
   snprintf(
      text, sizeof( text ), "^slabFree: %p is no live block of PlatformTest::Thing\n$", block );
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

TEST_F( TheSlabAllocator, givesEmptySlabsBackToTheSystem ) {
   const std::size_t before = slabStats().slabsMapped;
   for( const bool forward : { true, false } ) {
      Blocks taken = blocks( many );
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
   Blocks taken;
   const std::size_t before = slabStats().slabsMapped;
   while( slabStats().slabsMapped == before ) {
      taken.push_back( slabAlloc( entityBytes ) );
   }
   freeAll( blocks( many, 2 * entityBytes ) );
   const std::size_t full = slabStats().slabsMapped;
   const Blocks more = blocks( blocksPerSlab() - 1 + reserveCount * blocksPerSlab() );
   EXPECT_EQ( slabStats().slabsMapped, full );
   taken.push_back( slabAlloc( entityBytes ) );
   EXPECT_EQ( slabStats().slabsMapped, full + 1 );
   freeAll( taken );
   freeAll( more );
}

TEST_F( TheSlabAllocator, givesALargeBlockBackAtOnce ) {
   const std::size_t before = bytesMapped;
   for( const std::size_t slabs : { 1U, 10U } ) {
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
            Blocks taken;
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

TEST_F( TheSlabAllocator, returnsNullWithoutMemoryForAThreadsHeap ) {
   HeapKeepers keepers;
   keepers.takeAllThatAreLeft();
   EXPECT_TRUE( keepers.more() );
   heapRefused = true;
   EXPECT_FALSE( keepers.more() );
   heapRefused = false;
}

} // namespace
} // namespace PlatformTest
