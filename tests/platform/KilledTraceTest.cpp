// What is left of ring-buffer traces when SIGKILL ends their process at any moment.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <string>
#include <thread>

#include <csignal>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Fennet::DefaultHandle;
using Fennet::TraceFolder;

TRACE_FACILITY( "KilledTraceTest" );

// Lengths from nothing to about 300, so that records end at all places of the ring.
std::string textOf( std::int64_t number ) {
   return std::string(
      static_cast< std::size_t >( number * 37 % 311 ), static_cast< char >( 'a' + number % 26 ) );
}

// What the traced process says about itself in memory that outlives it.
struct Progress {
   struct Thread {
      std::atomic< int > tid;
      std::atomic< std::int64_t > finished;
   };
   Thread threads[2];

   std::int64_t finished() const { return threads[0].finished.load() + threads[1].finished.load(); }
};

[[noreturn]] void traceForEver( Progress::Thread& progress ) {
   progress.tid = gettid();
   for( std::int64_t number = 0;; ++number ) {
      const std::string text = textOf( number );
      TRACE( 8, "{} {} {}", number, text, number % 2 == 0 );
      progress.finished.store( number + 1, std::memory_order_release );
   }
}

class AKilledProcess : public testing::Test {
 protected:
   AKilledProcess()
      : progress_( new( mmap(
           nullptr, sizeof( Progress ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
           0 ) ) Progress{} ) {}
   ~AKilledProcess() override { munmap( progress_, sizeof( Progress ) ); }

   // Kills a process with two tracing threads once it has finished `records` records.
   void runUntil( std::int64_t records, const TraceFolder& folder ) {
      const pid_t child = fork();
      if( child == 0 ) {
         const DefaultHandle handle( folder );
         std::thread other( [&] { traceForEver( progress_->threads[1] ); } );
         traceForEver( progress_->threads[0] );
      }
      while( progress_->finished() < records ) {
         std::this_thread::yield();
      }
      kill( child, SIGKILL );
      int status = 0;
      waitpid( child, &status, 0 );
      ASSERT_TRUE( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGKILL );
   }

   // Counts the records that are missing though their end was reached, but for the oldest of a full
   // ring, and those that are not whole.
   void count( const TraceFolder& folder ) {
      struct Found {
         std::int64_t first = -1;
         std::int64_t next = -1;
         std::size_t bytes = 0;
      };
      std::map< int, Found > threads;
      for( const auto& [time, origin, record] : folder.records() ) {
         Found& found = threads[origin->tid];
         ++found_;
         ASSERT_FALSE( record.arguments.empty() );
         const auto number = std::get< std::int64_t >( record.arguments[0] );
         if( found.first < 0 ) {
            found.first = found.next = number;
         }
         torn_ += record.arguments.size() != 3 ||
                  std::get< std::string >( record.arguments[1] ) != textOf( number ) ||
                  std::get< bool >( record.arguments[2] ) != ( number % 2 == 0 );
         ASSERT_GE( number, found.next );
         lost_ += number - found.next;
         found.next = number + 1;
         found.bytes += sizeof( Fennet::RecordHead ) + 8 + 2 + textOf( number ).size() + 1;
      }
      for( const Progress::Thread& thread : progress_->threads ) {
         const Found& found = threads[thread.tid];
         const std::int64_t finished = thread.finished;
         lost_ +=
            std::max< std::int64_t >( finished - std::max< std::int64_t >( found.next, 0 ), 0 );
         ASSERT_LE( found.next, finished + 1 );
         if( found.first > 0 ) {
            // The ring was full. Alignment takes up to 7 bytes a record.
            ASSERT_GE(
               found.bytes * 5 / 4, Fennet::minRingSize * 30 / 32 - 3 * Fennet::maxRecordSize );
         }
      }
   }

   // Also what a failure has left.
   void TearDown() override {
      RecordProperty( "kills", kills_ );
      RecordProperty( "found", std::to_string( found_ ) );
      RecordProperty( "lost", std::to_string( lost_ ) );
      RecordProperty( "torn", torn_ );
   }

   int kills_ = 0;
   std::int64_t found_ = 0;
   std::int64_t lost_ = 0;
   int torn_ = 0;
   Progress* progress_;
};

TEST_F( AKilledProcess, leavesEveryFinishedRecordAndNoTornOne ) {
   std::mt19937 random( 1 );
   // From the very first records to several times round the ring.
   std::geometric_distribution< std::int64_t > records( 1.0 / 1000 );
   while( kills_ < 1000 ) {
      const TraceFolder folder;
      new( progress_ ) Progress{};
      ASSERT_NO_FATAL_FAILURE( runUntil( records( random ), folder ) );
      ++kills_;
      ASSERT_NO_FATAL_FAILURE( count( folder ) ) << "after kill " << kills_;
      ASSERT_EQ( lost_, 0 ) << "after kill " << kills_;
      ASSERT_EQ( torn_, 0 ) << "after kill " << kills_;
   }
}

} // namespace
