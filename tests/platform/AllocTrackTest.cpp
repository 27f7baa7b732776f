// The counts of the allocation tracker: exact across threads, and when memory runs out.
#include "Threads.h"

#include <platform/entity/Entity.h>
#include <platform/memory/AllocTrack.h>
#include <platform/value/Exception.h>
#include <support/Memory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstdint>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace SodrelTest {

// Each number is a separate entity type.
template< int number >
class Numbered : public Tessel::Node {
   TESSEL_ENTITY( Numbered )
};
template< int number >
Orl::AllocTrackTypeInfo* Numbered< number >::memAllocationTracker_ = nullptr;
template< int number >
Tessel::TypeRef Numbered< number >::typeData() const {
   return {};
}

namespace {

using Orl::allocCounts;
using Orl::AllocTrackTypeInfo;
using Tessel::ptrIsImpl;

using Counts = std::pair< std::uint64_t, std::uint64_t >;

// Live and total.
template< typename T >
Counts countsOf() {
   const auto counts = allocCounts( Tessel::typeName( typeid( T ) ) );
   return counts ? Counts( counts->live, counts->total ) : Counts();
}

template< typename T >
void expectOneTracker() {
   std::barrier start( 4 );
   inThreads( 4, [&start] {
      start.arrive_and_wait();
      const auto dropped = ptrIsImpl< T >();
   } );
   EXPECT_EQ( countsOf< T >(), Counts( 0, 4 ) );
}

template< int... numbers >
void expectOneTrackerEach( std::integer_sequence< int, numbers... > ) {
   ( expectOneTracker< Numbered< 100 + numbers > >(), ... );
}

TEST( AnAllocationTracker, isMadeOnceWhenManyThreadsCreateTheFirstEntityAtOnce ) {
   expectOneTrackerEach( std::make_integer_sequence< int, 50 >() );
}

TEST( AnAllocationTracker, losesNoAllocationThatComesWhileItIsMade ) {
   using Type = Numbered< 1 >;
   duringAllocation = [] { const auto dropped = ptrIsImpl< Type >(); };
   const auto entity = ptrIsImpl< Type >();
   EXPECT_EQ( duringAllocation, nullptr );
   EXPECT_EQ( countsOf< Type >(), Counts( 1, 2 ) );
}

TEST( AnAllocationTracker, countsExactlyOverThreadsThatComeAndGo ) {
   using Type = Numbered< 2 >;
   std::mutex mutex;
   for( std::uint64_t round = 1; round <= 3; ++round ) {
      std::vector< Tessel::Ptr< Type > > kept;
      inThreads( 8, [&] {
         for( int i = 0; i < 5'000; ++i ) {
            auto entity = ptrIsImpl< Type >();
            if( i % 10 == 0 ) {
               const std::lock_guard lock( mutex );
               kept.push_back( std::move( entity ) );
            }
         }
      } );
      EXPECT_EQ( countsOf< Type >(), Counts( 4'000, round * 40'000 ) );
      // The rest is released by a different thread from those that allocated it.
      inThreads( 1, [&kept] { kept.clear(); } );
      EXPECT_EQ( countsOf< Type >(), Counts( 0, round * 40'000 ) );
   }
}

TEST( AnAllocationTracker, neverShowsMoreLiveThanAllocatedWhileOthersCount ) {
   using Type = Numbered< 3 >;
   constexpr std::uint64_t count = 20'000;
   const auto first = ptrIsImpl< Type >();
   std::atomic< bool > done = false;
   std::uint64_t most = 0;
   std::jthread reader( [&] {
      while( !done ) {
         most = std::max( most, countsOf< Type >().first );
      }
   } );
   inThreads( 2, [] {
      for( std::uint64_t i = 0; i < count / 2; ++i ) {
         const auto dropped = ptrIsImpl< Type >();
      }
   } );
   done = true;
   reader.join();
   EXPECT_LE( most, 3 );
   EXPECT_EQ( countsOf< Type >(), Counts( 1, 1 + count ) );
}

TEST( AnAllocationTracker, recordsNothingWithoutMemoryForItself ) {
   using Type = Numbered< 4 >;
   for( std::size_t number = 1;; ++number ) {
      bool missing = false;
      {
         const WatchedMemory memory( number );
         try {
            const auto dropped = ptrIsImpl< Type >();
         } catch( const std::bad_alloc& ) {
            missing = true;
         }
      }
      if( !missing ) {
         EXPECT_GT( number, 2 );
         break;
      }
      EXPECT_EQ( countsOf< Type >().first, 0 ) << number;
   }
   EXPECT_EQ( countsOf< Type >().first, 0 );
   EXPECT_NE( Type::memAllocationTracker_, nullptr );
}

TEST( AllocCounts, knowNothingOfATypeNeverAllocated ) {
   EXPECT_FALSE( allocCounts( "SodrelTest::Numbered<5>" ) );
   EXPECT_FALSE( allocCounts( "" ) );
}

TEST( AllocCounts, addUpTypesOfOneName ) {
   // As for types with the same name that are local to their files: one name, two trackers.
   AllocTrackTypeInfo* first = nullptr;
   AllocTrackTypeInfo* second = nullptr;
   AllocTrackTypeInfo::_trackAllocation( &first, typeid( Numbered< 6 > ), 1, 1 );
   AllocTrackTypeInfo::_trackAllocation( &second, typeid( Numbered< 6 > ), 1, 1 );
   AllocTrackTypeInfo::trackDeallocation( second );
   const auto counts = allocCounts( "SodrelTest::Numbered<6>" );
   ASSERT_TRUE( counts );
   EXPECT_EQ( counts->live, 1 );
   EXPECT_EQ( counts->total, 2 );
}

} // namespace
} // namespace SodrelTest
