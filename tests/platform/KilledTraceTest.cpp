// What is left of ring-buffer traces when SIGKILL ends their process at any moment.
#include <platform/trace/Trace.h>

#include "Process.h"
#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <map>
#include <new>
#include <random>
#include <string>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

namespace SodrelTest {
namespace {

TRACE_FACILITY( "KilledTraceTest" );

// Lengths from 0 to about 300, so that records end everywhere in the ring.
std::string textOf( std::int64_t number ) {
   return std::string(
      static_cast< std::size_t >( number * 37 % 311 ), static_cast< char >( 'a' + number % 26 ) );
}

// The progress of the traced process, in memory that outlives it.
struct Progress {
   struct Thread {
      std::atomic< int > tid;
      std::atomic< std::int64_t > finished;
   };
   Thread threads[2];
};

[[noreturn]] void traceForEver( Progress::Thread& progress ) {
   progress.tid = gettid();
   for( std::int64_t number = 0;; ++number ) {
      TRACE( 8, "{} {} {}", number, textOf( number ), number % 2 == 0 );
      progress.finished.store( number + 1, std::memory_order_release );
   }
}

class AKilledProcess : public testing::Test {
 protected:
   AKilledProcess()
      : progress( new( mmap(
           nullptr, sizeof( Progress ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
           0 ) ) Progress{} ) {}
   ~AKilledProcess() override { munmap( progress, sizeof( Progress ) ); }

   // Kills a process with two tracing threads once it has finished `records` records.
   void runUntil( std::int64_t records, const TraceFolder& folder ) {
      new( progress ) Progress{};
      const pid_t child = fork();
      if( child == 0 ) {
         const DefaultHandle handle( folder );
         std::thread other( [&] { traceForEver( progress->threads[1] ); } );
         traceForEver( progress->threads[0] );
      }
      while( progress->threads[0].finished + progress->threads[1].finished < records ) {
         std::this_thread::yield();
      }
      kill( child, SIGKILL );
      ASSERT_EQ( statusOf( child ), 128 + SIGKILL );
   }

   // Every record is complete, and no finished record is missing except for the oldest ones of a
   // full ring.
   void check( const TraceFolder& folder ) {
      struct Found {
         std::int64_t first = -1;
         std::int64_t next = 0;
         std::size_t bytes = 0;
      };
      std::map< int, Found > threads;
      for( const auto& [time, origin, record] : folder.records() ) {
         Found& found = threads[origin->tid];
         ASSERT_EQ( record.arguments.size(), 3U );
         const auto number = std::get< std::int64_t >( record.arguments[0] );
         if( found.first < 0 ) {
            found.first = found.next = number;
         }
         ASSERT_EQ( number, found.next++ );
         ASSERT_EQ( std::get< std::string >( record.arguments[1] ), textOf( number ) );
         ASSERT_EQ( std::get< bool >( record.arguments[2] ), number % 2 == 0 );
         found.bytes += sizeof( Fennet::RecordHead ) + 8 + 2 + textOf( number ).size() + 1;
      }
      for( const Progress::Thread& thread : progress->threads ) {
         const Found& found = threads[thread.tid];
         ASSERT_GE( found.next, thread.finished );
         ASSERT_LE( found.next, thread.finished + 1 );
         if( found.first > 0 ) {
            // The ring was full. Alignment and the ends of blocks take some space.
            ASSERT_GE( found.bytes * 5 / 4, Fennet::minRingSize - 2 * Fennet::blockSize );
         }
      }
   }

   Progress* const progress;
};

TEST_F( AKilledProcess, leavesEveryFinishedRecordAndNoTornOne ) {
   std::mt19937 random( 1 );
   // From the very first records to several times around the ring.
   std::geometric_distribution< std::int64_t > records( 1.0 / 1000 );
   for( int kills = 1; kills <= 1000; ++kills ) {
      const TraceFolder folder;
      ASSERT_NO_FATAL_FAILURE( runUntil( records( random ), folder ) );
      ASSERT_NO_FATAL_FAILURE( check( folder ) ) << "after kill " << kills;
   }
}

} // namespace
} // namespace SodrelTest
