// Handles of ring-buffer traces: their files, threads that end, and child processes.
#include <platform/trace/Trace.h>

#include "Process.h"
#include "ScriptedSystem.h"
#include "TraceFolder.h"

#include <support/Abort.h>
#include <support/Memory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace SodrelTest {
namespace {

TRACE_FACILITY( "TraceHandleTest" );

// One trace point for many calls.
void traceNumber( int number ) {
   TRACE( 8, "number {}", number );
}

TEST( AHandleOfOneThread, hasOneFileUntilItsEnd ) {
   const TraceFolder folder;
   const OpenFiles before;
   {
      const DefaultHandle handle( folder, false );
      traceNumber( 1 );
      std::thread( traceNumber, 2 ).join();
   }
   EXPECT_EQ( folder.texts(), ( Texts{ "number 1", "number 2" } ) );
   EXPECT_EQ( folder.files().size(), 1U );
   EXPECT_EQ( OpenFiles(), before );
}

TEST( AHandle, createsItsFileOnceThereIsMemory ) {
   for( const bool shared : { true, false } ) {
      const TraceFolder folder;
      Fennet::TraceHandle handle( folder.path(), Fennet::minRingSize, shared );
      std::size_t failing = 0;
      const OpenFiles before;
      for( bool fails = true; fails; ) {
         EXPECT_EQ( OpenFiles(), before );
         const WatchedMemory memory( ++failing, true );
         try {
            EXPECT_NE( handle.mtTraceFile(), nullptr );
            fails = false;
         } catch( const std::bad_alloc& ) {
         }
      }
      EXPECT_GT( failing, 1U );
      EXPECT_EQ( folder.files().size(), 1U );
   }
}

TEST( AHandle, keepsItsFileWhenAnotherTakesTurnsWithIt ) {
   const TraceFolder one;
   const TraceFolder other;
   Fennet::TraceHandle handle( one.path(), Fennet::minRingSize, true );
   Fennet::TraceHandle otherHandle( other.path(), Fennet::minRingSize, true );
   Fennet::TraceFile* const file = handle.mtTraceFile();
   Fennet::TraceFile* const otherFile = otherHandle.mtTraceFile();
   ASSERT_NE( file, nullptr );
   ASSERT_NE( otherFile, nullptr );
   EXPECT_EQ( handle.mtTraceFile(), file );
   EXPECT_EQ( otherHandle.mtTraceFile(), otherFile );
   EXPECT_EQ( one.files().size(), 1U );
   EXPECT_EQ( other.files().size(), 1U );
}

TEST( AnAbsentHandle, takesNothing ) {
   EXPECT_EQ( Fennet::defaultFennetHandle.load(), nullptr );
   traceNumber( 1 );
}

// The ways to create a child process that the C library knows of, and one that it does not.
struct Fork {
   const char* name;
   pid_t ( *make )();
   friend void PrintTo( const Fork& fork, std::ostream* stream ) { *stream << fork.name; }
};
pid_t cloned() {
#ifdef __s390x__ // where the stack comes first
   return static_cast< pid_t >( syscall( SYS_clone, 0, SIGCHLD, 0, 0, 0 ) );
#else
   return static_cast< pid_t >( syscall( SYS_clone, SIGCHLD, 0, 0, 0, 0 ) );
#endif
}
class AChildProcess : public testing::TestWithParam< Fork > {};

TEST_P( AChildProcess, writesToAFileOfItsOwn ) {
   for( const bool shared : { true, false } ) {
      const TraceFolder folder;
      const DefaultHandle handle( folder, shared );
      traceNumber( 1 );
      const pid_t child = GetParam().make();
      if( child == 0 ) {
         traceNumber( 2 );
         _exit( 0 );
      }
      EXPECT_EQ( statusOf( child ), 0 );
      traceNumber( 3 );

      EXPECT_EQ( folder.texts(), ( Texts{ "number 1", "number 2", "number 3" } ) );
      const auto records = folder.records();
      ASSERT_EQ( records.size(), 3U );
      EXPECT_EQ( records[0].origin->pid, getpid() );
      EXPECT_EQ( records[1].origin->pid, child );
      EXPECT_EQ( records[2].origin->pid, getpid() );
      EXPECT_EQ( folder.files().size(), 2U );
   }
}

INSTANTIATE_TEST_SUITE_P(
   , AChildProcess,
   testing::Values( Fork{ "fork", fork }, Fork{ "_Fork", _Fork }, Fork{ "clone", &cloned } ) );

// The exit status for the body, run in a process with the id 1. Only root needs no user namespace.
int statusInPidNamespace( const std::function< void() >& body ) {
   return statusOf( [&] {
      EXPECT_TRUE( unshare( CLONE_NEWPID ) == 0 || unshare( CLONE_NEWUSER | CLONE_NEWPID ) == 0 );
      EXPECT_EQ( statusOf( body ), 0 );
   } );
}

TEST( AChildInAPidNamespace, writesToAFileOfItsOwnAlsoWithTheIdOfItsParent ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   const int status = statusInPidNamespace( [] {
      EXPECT_EQ( getpid(), 1 );
      traceNumber( 1 );
      EXPECT_EQ(
         statusInPidNamespace( [] {
            EXPECT_EQ( getpid(), 1 );
            traceNumber( 2 );
         } ),
         0 );
      traceNumber( 3 );
   } );
   EXPECT_EQ( status, 0 );
   EXPECT_EQ( folder.texts(), ( Texts{ "number 1", "number 2", "number 3" } ) );
   EXPECT_EQ( folder.files().size(), 2U );
}

// Traces after its thread's files have been closed, and in a child process too.
struct LateTracer {
   ~LateTracer() {
      traceNumber( 2 );
      EXPECT_EQ( statusOf( [] { traceNumber( 3 ); } ), 0 );
   }
};

TEST( AThreadThatIsEnding, leavesNoMoreRecords ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   std::thread( [] {
      thread_local const LateTracer tracer; // destroyed last: created before the first trace
      traceNumber( 1 );
   } ).join();
   EXPECT_EQ( folder.texts(), Texts{ "number 1" } );
   EXPECT_EQ( folder.files().size(), 1U );
}

TEST( AProcessThatIsEnding, mayForkInItsExitHandlers ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   EXPECT_EQ(
      statusOf( [&] {
         std::atexit( [] { _exit( statusOf( [] { traceNumber( 3 ); } ) ); } );
         traceNumber( 1 );
         std::exit( 1 );
      } ),
      0 );
   EXPECT_EQ( folder.texts(), Texts{ "number 1" } );
}

class ThreadsThatHaveEnded : public testing::Test {
 protected:
   static void endThreads( int count ) {
      for( int number = 0; number < count; ++number ) {
         std::thread( traceNumber, number ).join();
      }
   }
   std::set< std::string > texts() const {
      const Texts all = folder.texts();
      return { all.begin(), all.end() };
   }

   TraceFolder folder;
   DefaultHandle handle{ folder };
};

TEST_F( ThreadsThatHaveEnded, leaveTheLatest64Files ) {
   traceNumber( -1 ); // the file of a running thread stays
   endThreads( 100 );
   EXPECT_EQ( folder.files().size(), 65U );
   std::set< std::string > expected{ "number -1" };
   for( int number = 36; number < 100; ++number ) {
      expected.insert( "number " + std::to_string( number ) );
   }
   EXPECT_EQ( texts(), expected );
}

TEST_F( ThreadsThatHaveEnded, leaveTheLatest64FilesWithoutMemoryToo ) {
   for( int number = 0; number < 70; ++number ) {
      std::thread( [number] {
         // Destroyed last, because it is created before the first trace.
         thread_local std::optional< WatchedMemory > memory;
         memory.reset();
         traceNumber( number );
         memory.emplace( 1, true );
      } ).join();
   }
   EXPECT_EQ( folder.files().size(), 64U );
   EXPECT_FALSE( texts().contains( "number 5" ) );
   EXPECT_TRUE( texts().contains( "number 6" ) );
}

TEST_F( ThreadsThatHaveEnded, leaveTheFilesOfOtherProcessesAlone ) {
   endThreads( 64 );
   const auto ofParent = folder.files();
   EXPECT_EQ( statusOf( [] { endThreads( 70 ); } ), 0 );
   const auto files = folder.files();
   EXPECT_EQ( files.size(), 128U );
   EXPECT_TRUE( std::includes( files.begin(), files.end(), ofParent.begin(), ofParent.end() ) );
}

// A child process has its parent's files until it traces.
TEST_F( ThreadsThatHaveEnded, leaveTheFilesOfAParentAlone ) {
   static std::atomic_flag ended;
   // Destroyed after the thread's trace file, which is created later.
   struct AtEnd {
      ~AtEnd() {
         ended.test_and_set();
         ended.notify_one();
      }
   };
   pid_t child = 0;
   std::vector< std::filesystem::path > ofParent;
   std::thread( [&] {
      thread_local const AtEnd atEnd;
      traceNumber( -1 );
      ofParent = folder.files();
      child = fork();
      if( child == 0 ) {
         std::thread( [] {
            ended.wait( false );
            endThreads( 70 );
            _exit( 0 );
         } ).detach();
      }
   } ).join();
   EXPECT_EQ( statusOf( child ), 0 );
   const auto files = folder.files();
   EXPECT_EQ( files.size(), 65U );
   EXPECT_TRUE( std::includes( files.begin(), files.end(), ofParent.begin(), ofParent.end() ) );
}

TEST( AMessageDescription, isWrittenWhicheverTracePointComesFirst ) {
   const auto one = [] { TRACE( 8, "one" ); };
   const auto other = [] { TRACE( 8, "other" ); };
   {
      const TraceFolder folder;
      const DefaultHandle handle( folder );
      one();
      other();
      EXPECT_EQ( folder.texts(), ( Texts{ "one", "other" } ) );
   }
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   other();
   one();
   EXPECT_EQ( folder.texts(), ( Texts{ "other", "one" } ) );
}

TEST( AMessageDescription, losesTheEndOfALongText ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   const std::string tooLong( Fennet::maxDescriptionText + 1, 'x' );
   std::atomic< int > msgId = 0;
   const Tessel::TracePoint point{ "a.cpp", 7, tooLong.c_str(), "", 8, traceFacility, msgId };
   point.trace();
   EXPECT_EQ(
      folder.records().at( 0 ).record.description->function,
      std::string( Fennet::maxDescriptionText, 'x' ) );
}

TEST( ATracePointDeathTest, endsTheProcessWhenItsIdIsNegative ) {
   std::atomic< int > msgId = -1;
   const Tessel::TracePoint point{ "a.cpp", 7, "f", "", 8, traceFacility, msgId };
   point.trace(); // no record needs the id
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   EXPECT_EXIT(
      point.trace(), testing::KilledBySignal( SIGABRT ),
      beforeAbort( testing::ContainsRegex(
         "^src/platform/trace/Trace\\.cpp:[0-9]+: Tessel::TracePoint::record: "
         "Assertion `msgId_ >= 0' failed\\.\n$" ) ) );
}

} // namespace
} // namespace SodrelTest
