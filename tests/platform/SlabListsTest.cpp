// Which slab a block comes from, and what becomes of slabs whose blocks come back in any order.
#include "Slabs.h"

#include <platform/memory/Slab.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <future>
#include <map>
#include <thread>
#include <vector>

namespace PlatformTest {
namespace {

using Tessel::slabAlloc;
using Tessel::slabStats;

class TheSlabsOfAThread : public testing::TestWithParam< std::size_t > {
 protected:
   // The blocks of each slab that is full.
   static std::vector< Blocks > fullSlabs( const Blocks& taken, std::size_t size ) {
      std::map< std::uintptr_t, Blocks > slabs;
      for( void* const block : taken ) {
         slabs[reinterpret_cast< std::uintptr_t >( block ) / slabBytes].push_back( block );
      }
      std::vector< Blocks > full;
      for( const auto& [place, inside] : slabs ) {
         if( inside.size() == blocksPerSlab( size ) ) {
            full.push_back( inside );
         }
      }
      return full;
   }
};

TEST_P( TheSlabsOfAThread, holdAsManyBlocksAsThereIsRoomFor ) {
   inThread( [] {
      const Blocks taken = blocks( 3 * blocksPerSlab( GetParam() ), GetParam() );
      // Where the first one was begun by another thread, the last one is not full.
      EXPECT_GE( fullSlabs( taken, GetParam() ).size(), 2U );
      freeAll( taken );
   } );
}

TEST_P( TheSlabsOfAThread, canBecomeEmptyInTheOrderInWhichTheyCeasedToBeFull ) {
   inThread( [] {
      const std::size_t size = GetParam();
      const std::size_t count = blocksPerSlab( size );
      Blocks taken = blocks( 5 * count, size );
      std::vector< Blocks > full = fullSlabs( taken, size );
      ASSERT_GE( full.size(), 3U );
      full.resize( 3 );
      for( const Blocks& slab : full ) {
         freeAll( { slab.front() } );
      }
      for( const Blocks& slab : full ) {
         freeAll( Blocks( slab.begin() + 1, slab.end() ) );
         std::erase_if( taken, [&slab]( void* block ) {
            return std::find( slab.begin(), slab.end(), block ) != slab.end();
         } );
      }
      const Blocks more = blocks( 5 * count, size );
      taken.insert( taken.end(), more.begin(), more.end() );
      std::sort( taken.begin(), taken.end() );
      EXPECT_EQ( std::adjacent_find( taken.begin(), taken.end() ), taken.end() );
      freeAll( taken );
   } );
}

TEST_P( TheSlabsOfAThread, goBackAfterItsEndAlsoWhenTheyWereFull ) {
   freeAll( blocks( many ) ); // fills the reserve
   const std::size_t before = slabStats().slabsMapped;
   Blocks taken;
   for( int thread = 0; thread < 40; ++thread ) {
      inThread( [&taken] {
         const Blocks own = blocks( blocksPerSlab( GetParam() ), GetParam() );
         taken.insert( taken.end(), own.begin(), own.end() );
      } );
   }
   freeAll( taken );
   EXPECT_LE( slabStats().slabsMapped, before );
}

TEST_P( TheSlabsOfAThread, goBackAfterTheEndOfManyWhenTheLastBlockIsFreed ) {
   freeAll( blocks( many ) ); // fills the reserve
   const std::size_t before = slabStats().slabsMapped;
   std::promise< void > allHaveOne;
   const std::shared_future< void > end = allHaveOne.get_future().share();
   Blocks taken( 40 );
   std::vector< std::promise< void > > haveOne( taken.size() );
   std::vector< std::thread > threads;
   for( std::size_t i = 0; i < taken.size(); ++i ) {
      threads.emplace_back( [&taken, &haveOne, end, i] {
         taken[i] = slabAlloc( GetParam() );
         haveOne[i].set_value();
         end.wait();
      } );
   }
   for( std::promise< void >& one : haveOne ) {
      one.get_future().wait();
   }
   allHaveOne.set_value();
   for( std::thread& thread : threads ) {
      thread.join();
   }
   freeAll( taken );
   EXPECT_LE( slabStats().slabsMapped, before );
}

// The smallest blocks, those of usual entities, and the largest that share a slab.
INSTANTIATE_TEST_SUITE_P(, TheSlabsOfAThread, testing::Values( 16, 64, 1024 ) );

} // namespace
} // namespace PlatformTest
