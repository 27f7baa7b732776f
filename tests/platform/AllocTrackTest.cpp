// The counts of the allocation tracker: exact over threads, their ends, forks and lack of memory.
#include <platform/memory/AllocTrack.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <new>
#include <pthread.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

std::atomic< bool > memoryRefused = false;
std::atomic< bool > threadStateRefused = false;
// How many tables threads have been given for their counts.
std::atomic< std::size_t > tables = 0;
// Runs once, in the midst of the next allocation of memory.
std::atomic< void ( * )() > meanwhile = nullptr;

} // namespace

// The linker leads the tracker's calls of the plain and the aligned operator new here, and those
// that have the end of a thread told.
extern "C" {
void* __real__Znwm( std::size_t );
void* __real__ZnwmSt11align_val_tRKSt9nothrow_t(
   std::size_t, std::align_val_t, const std::nothrow_t& ) noexcept;

void* __wrap__Znwm( std::size_t size ) {
   if( memoryRefused ) {
      throw std::bad_alloc();
   }
   if( const auto work = meanwhile.exchange( nullptr ) ) {
      work();
   }
   return __real__Znwm( size );
}

void* __wrap__ZnwmSt11align_val_tRKSt9nothrow_t(
   std::size_t size, std::align_val_t alignment, const std::nothrow_t& none ) noexcept {
   if( memoryRefused ) {
      return nullptr;
   }
   ++tables;
   return __real__ZnwmSt11align_val_tRKSt9nothrow_t( size, alignment, none );
}

int __real_pthread_setspecific( pthread_key_t, const void* );

int __wrap_pthread_setspecific( pthread_key_t key, const void* value ) {
   return threadStateRefused ? ENOMEM : __real_pthread_setspecific( key, value );
}
}

namespace Samples {

template< int number >
struct Numbered {};

struct Outer {
   struct Inner {
      alignas( 32 ) char content[96];
   };
};

} // namespace Samples

namespace {

using Orl::allocCounts;
using Orl::AllocTrackTypeInfo;

// What an entity class has: its tracker, and the two calls of its operators new and delete.
template< typename T >
class Tracked {
 public:
   static void alloc() {
      AllocTrackTypeInfo::_trackAllocation( &tracker, typeid( T ), sizeof( T ), alignof( T ) );
   }
   static void release() { AllocTrackTypeInfo::trackDeallocation( tracker ); }
   static std::pair< std::uint64_t, std::uint64_t > liveAndTotal() {
      return { tracker->live(), tracker->total() };
   }

   static AllocTrackTypeInfo* tracker;
};
template< typename T >
AllocTrackTypeInfo* Tracked< T >::tracker = nullptr;

using Counts = std::pair< std::uint64_t, std::uint64_t >;

void inThreads( int count, const std::function< void() >& work ) {
   std::vector< std::thread > threads;
   for( int i = 0; i < count; ++i ) {
      threads.emplace_back( work );
   }
   for( std::thread& thread : threads ) {
      thread.join();
   }
}

class AnAllocationTracker : public testing::Test {};

template< int... numbers >
void allocEach( std::integer_sequence< int, numbers... > ) {
   ( Tracked< Samples::Numbered< 2000 + numbers > >::alloc(), ... );
}

// First of all, so that there are few types before the earlier one, and no tables.
TEST_F( AnAllocationTracker, countsInATableForEachThreadAndKeepsAllTablesForLaterThreads ) {
   using Earlier = Tracked< Samples::Numbered< 1010 > >;
   using Later = Tracked< Samples::Numbered< 1011 > >;
   Earlier::alloc();
   allocEach( std::make_integer_sequence< int, 100 >() );
   Later::alloc();
   std::barrier atOnce( 30 );
   inThreads( 30, [&atOnce] {
      Earlier::alloc();
      atOnce.arrive_and_wait();
      // Needs a larger table than the one before.
      Later::alloc();
      atOnce.arrive_and_wait();
   } );
   EXPECT_GE( tables, 30U );
   const std::size_t made = tables;
   // As this thread still has one, one more than those that are left.
   const auto wanted = static_cast< int >( made );
   std::barrier allAtOnce( wanted );
   inThreads( wanted, [&allAtOnce] {
      Earlier::alloc();
      allAtOnce.arrive_and_wait();
   } );
   EXPECT_EQ( tables, made + 1 );
}

TEST_F( AnAllocationTracker, knowsItsTypeByNameSizeAndAlignment ) {
   using Inner = Tracked< Samples::Outer::Inner >;
   Inner::alloc();
   EXPECT_EQ( Inner::tracker->typeName(), "Samples::Outer::Inner" );
   EXPECT_EQ( Inner::tracker->size(), 96 );
   EXPECT_EQ( Inner::tracker->alignment(), 32 );
   Inner::release();
}

TEST_F( AnAllocationTracker, isMadeOnceWhenManyThreadsAllocateFirst ) {
   using First = Tracked< Samples::Numbered< 1001 > >;
   std::barrier start( 8 );
   inThreads( 8, [&start] {
      start.arrive_and_wait();
      First::alloc();
   } );
   EXPECT_EQ( First::liveAndTotal(), Counts( 8, 8 ) );
   const auto counts = allocCounts( "Samples::Numbered<1001>" );
   ASSERT_TRUE( counts );
   EXPECT_EQ( counts->live, 8 );
   EXPECT_EQ( counts->total, 8 );
}

TEST_F( AnAllocationTracker, losesNoAllocationThatComesWhileItIsMade ) {
   using Type = Tracked< Samples::Numbered< 1008 > >;
   meanwhile = &Type::alloc;
   Type::alloc();
   EXPECT_EQ( meanwhile.load(), nullptr );
   EXPECT_EQ( Type::liveAndTotal(), Counts( 2, 2 ) );
}

TEST_F( AnAllocationTracker, countsExactlyOverThreadsThatComeAndGo ) {
   using Type = Tracked< Samples::Numbered< 1002 > >;
   for( std::uint64_t round = 1; round <= 3; ++round ) {
      inThreads( 8, [] {
         for( int i = 0; i < 10'000; ++i ) {
            Type::alloc();
            if( i % 10 != 0 ) {
               Type::release();
            }
         }
      } );
      EXPECT_EQ( Type::liveAndTotal(), Counts( 8'000, round * 80'000 ) );
      // The rest is released by others than those who allocated it.
      inThreads( 4, [] {
         for( int i = 0; i < 2'000; ++i ) {
            Type::release();
         }
      } );
      EXPECT_EQ( Type::liveAndTotal(), Counts( 0, round * 80'000 ) );
   }
}

TEST_F( AnAllocationTracker, neverShowsMoreLiveThanAllocatedWhileOthersCount ) {
   using Type = Tracked< Samples::Numbered< 1003 > >;
   Type::alloc();
   std::atomic< bool > done = false;
   std::atomic< std::uint64_t > most = 0;
   std::thread reader( [&] {
      while( !done ) {
         most = std::max( most.load(), Type::tracker->live() );
      }
   } );
   // One thread allocates what the other one releases.
   std::atomic< int > waiting = 0;
   std::thread releaser( [&] {
      for( int i = 0; i < 20'000; ++i ) {
         while( waiting == 0 ) {
            std::this_thread::yield();
         }
         --waiting;
         Type::release();
      }
   } );
   for( int i = 0; i < 20'000; ++i ) {
      Type::alloc();
      ++waiting;
   }
   releaser.join();
   done = true;
   reader.join();
   EXPECT_LE( most, 20'001 );
   EXPECT_EQ( Type::liveAndTotal(), Counts( 1, 20'001 ) );
}

template< int... numbers >
void allocAndCheckEach( std::integer_sequence< int, numbers... > ) {
   ( Tracked< Samples::Numbered< numbers > >::alloc(), ... );
   ( Tracked< Samples::Numbered< numbers > >::alloc(), ... );
   ( Tracked< Samples::Numbered< numbers > >::release(), ... );
   const std::vector< Counts > counts{ Tracked< Samples::Numbered< numbers > >::liveAndTotal()... };
   EXPECT_EQ( counts, std::vector( sizeof...( numbers ), Counts( 1, 2 ) ) );
}

TEST_F( AnAllocationTracker, countsHoweverManyTypesThereAre ) {
   allocAndCheckEach( std::make_integer_sequence< int, 200 >() );
}

TEST_F( AnAllocationTracker, countsOnInAChildProcess ) {
   using Type = Tracked< Samples::Numbered< 1004 > >;
   struct Shared {
      std::promise< void > counted;
      std::promise< void > end;
   } shared;
   Type::alloc();
   // Not std::thread, whose own memory would be lost in the child.
   pthread_t other{};
   ASSERT_EQ(
      pthread_create(
         &other, nullptr,
         []( void* argument ) -> void* {
            auto& [counted, end] = *static_cast< Shared* >( argument );
            Type::alloc();
            counted.set_value();
            end.get_future().wait();
            return nullptr;
         },
         &shared ),
      0 );
   shared.counted.get_future().wait();
   const pid_t child = fork();
   if( child == 0 ) {
      Type::alloc();
      Type::release();
      Type::release();
      _exit( Type::liveAndTotal() == Counts( 1, 3 ) ? 0 : 1 );
   }
   int status = -1;
   EXPECT_EQ( waitpid( child, &status, 0 ), child );
   EXPECT_EQ( status, 0 );
   shared.end.set_value();
   pthread_join( other, nullptr );
   EXPECT_EQ( Type::liveAndTotal(), Counts( 2, 2 ) );
}

TEST_F( AnAllocationTracker, throwsAndRecordsNothingWithoutMemoryForItself ) {
   using Type = Tracked< Samples::Numbered< 1005 > >;
   memoryRefused = true;
   EXPECT_THROW( Type::alloc(), std::bad_alloc );
   memoryRefused = false;
   EXPECT_EQ( Type::tracker, nullptr );
   EXPECT_FALSE( allocCounts( "Samples::Numbered<1005>" ) );
}

TEST_F( AnAllocationTracker, countsWithoutMemoryForAThreadsCounts ) {
   using Type = Tracked< Samples::Numbered< 1006 > >;
   Type::alloc();
   // As many threads at once as leave none of them a table of an ended one.
   std::barrier all( 20, []() noexcept { memoryRefused = !memoryRefused; } );
   inThreads( 20, [&all] {
      all.arrive_and_wait();
      Type::alloc();
      Type::alloc();
      Type::release();
      all.arrive_and_wait();
   } );
   EXPECT_FALSE( memoryRefused );
   EXPECT_EQ( Type::liveAndTotal(), Counts( 21, 41 ) );
}

TEST_F( AnAllocationTracker, countsWhereTheEndOfAThreadIsNotTold ) {
   using Type = Tracked< Samples::Numbered< 1009 > >;
   Type::alloc();
   inThreads( 1, [] {
      threadStateRefused = true;
      Type::alloc();
      Type::alloc();
      Type::release();
      threadStateRefused = false;
      Type::alloc();
   } );
   EXPECT_EQ( Type::liveAndTotal(), Counts( 3, 4 ) );
}

TEST_F( AnAllocationTracker, countsInNoTableThatAThreadHasLeft ) {
   using Type = Tracked< Samples::Numbered< 1013 > >;
   static std::size_t made = 0;
   Type::alloc();
   // Such a key's destructor runs after the tracker's own, whose key is older.
   pthread_key_t key{};
   ASSERT_EQ(
      pthread_key_create(
         &key,
         []( void* ) {
            // In the meantime other threads have taken all tables.
            std::barrier atOnce( static_cast< int >( tables ) );
            std::thread others( [&atOnce] {
               inThreads( static_cast< int >( tables ) - 1, [&atOnce] {
                  Type::alloc();
                  atOnce.arrive_and_wait();
                  atOnce.arrive_and_wait();
               } );
            } );
            atOnce.arrive_and_wait();
            const std::size_t before = tables;
            Type::alloc();
            made = tables - before;
            atOnce.arrive_and_wait();
            others.join();
         } ),
      0 );
   inThreads( 1, [key] {
      Type::alloc();
      __real_pthread_setspecific( key, &made );
   } );
   pthread_key_delete( key );
   EXPECT_EQ( made, 1U );
}

TEST_F( AnAllocationTracker, losesNoTableWhereTheEndOfAThreadIsNotTold ) {
   using Type = Tracked< Samples::Numbered< 1012 > >;
   const std::size_t before = tables;
   inThreads( 1, [] {
      threadStateRefused = true;
      for( int i = 0; i < 100; ++i ) {
         Type::alloc();
      }
      threadStateRefused = false;
   } );
   EXPECT_LE( tables, before + 1 );
   EXPECT_EQ( Type::liveAndTotal(), Counts( 100, 100 ) );
}

TEST( AllocCounts, knowNothingOfATypeNeverAllocated ) {
   EXPECT_FALSE( allocCounts( "Samples::Outer" ) );
   EXPECT_FALSE( allocCounts( "" ) );
}

TEST( AllocCounts, addUpTypesOfOneName ) {
   // As with types of one name that are local to their files: one name, two trackers.
   AllocTrackTypeInfo* first = nullptr;
   AllocTrackTypeInfo* second = nullptr;
   AllocTrackTypeInfo::_trackAllocation( &first, typeid( Samples::Numbered< 1007 > ), 1, 1 );
   AllocTrackTypeInfo::_trackAllocation( &second, typeid( Samples::Numbered< 1007 > ), 1, 1 );
   AllocTrackTypeInfo::trackDeallocation( second );
   const auto counts = allocCounts( "Samples::Numbered<1007>" );
   ASSERT_TRUE( counts );
   EXPECT_EQ( counts->live, 1 );
   EXPECT_EQ( counts->total, 2 );
}

} // namespace
