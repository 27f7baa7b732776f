// Traces when system calls fail: the program continues, and the failure is reported once.
#include <platform/trace/Trace.h>
#include <platform/trace/TraceFile.h>

#include "Process.h"
#include "ScriptedSystem.h"
#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

namespace SodrelTest {
namespace {

TRACE_FACILITY( "TroubledTraceTest" );

void traceNumber( int number ) {
   TRACE( 8, "number {}", number );
}

class ATroubledRingTrace : public testing::Test {
 protected:
   ~ATroubledRingTrace() override { scripted = {}; }

   std::string cannotCreate( const std::string& reason ) const {
      return "Fennet: cannot create a trace file in \"" + folder.path().string() + "\": " + reason +
             "; the thread leaves no records\n";
   }
   std::filesystem::path fileOfThread( int number ) const {
      return folder.path() / ( std::to_string( getpid() ) + "-" + std::to_string( gettid() ) + "." +
                               std::to_string( number ) + ".fennet" );
   }
   template< typename Body >
   static std::string stderrOfThis( Body body ) {
      testing::internal::CaptureStderr();
      body();
      return testing::internal::GetCapturedStderr();
   }

   const std::string noMoreDescriptions =
      "Fennet: a trace file takes no more descriptions: No space left on device; records without "
      "one are left out\n";
   TraceFolder folder;
   DefaultHandle handle{ folder };
};

TEST_F( ATroubledRingTrace, isLeftOutWithOneWordWhereTheFolderIsMissing ) {
   std::filesystem::remove( folder.path() );
   const OpenFiles before;
   EXPECT_EQ( Fennet::TraceFile::create( folder.path(), Fennet::minRingSize ), nullptr );
   EXPECT_EQ( OpenFiles(), before );
   EXPECT_EQ(
      stderrOfThis( [] {
         traceNumber( 1 );
         traceNumber( 2 );
         std::thread( traceNumber, 3 ).join();
      } ),
      cannotCreate( "No such file or directory" ) );
}

TEST_F( ATroubledRingTrace, goesOnInItsFileWhenTheFolderVanishes ) {
   traceNumber( 1 );
   std::filesystem::remove_all( folder.path() );
   EXPECT_EQ(
      stderrOfThis( [] {
         for( int number = 0; number < 10'000; ++number ) {
            traceNumber( number );
         }
         TRACE( 8, "a description that is new" );
      } ),
      "" );
}

TEST_F( ATroubledRingTrace, leavesAPlantedLinkAndItsTargetAlone ) {
   const auto target = folder.path() / "target";
   std::ofstream( target ) << "precious";
   std::filesystem::create_symlink( target, fileOfThread( 0 ) );
   std::filesystem::create_symlink( "nowhere", fileOfThread( 1 ) );
   traceNumber( 1 );
   EXPECT_EQ( contentOf( target ), "precious" );
   EXPECT_FALSE( std::filesystem::exists( folder.path() / "nowhere" ) );
   EXPECT_TRUE( std::filesystem::is_regular_file( fileOfThread( 2 ) ) );
}

TEST_F( ATroubledRingTrace, isLeftOutWhereAThousandFilesOfTheThreadAreAlready ) {
   for( int number = 0; number < 999; ++number ) {
      std::ofstream( fileOfThread( number ) ).flush();
   }
   EXPECT_NE( Fennet::TraceFile::create( folder.path(), Fennet::minRingSize ), nullptr );
   EXPECT_EQ( stderrOfThis( [] { traceNumber( 1 ); } ), cannotCreate( "File exists" ) );
   EXPECT_EQ( folder.files().size(), 1000 );
}

TEST_F( ATroubledRingTrace, leavesNothingBehindWhenTheDiskOrTheMemoryIsFull ) {
   for( int* const call : { &scripted.posixFallocate, &scripted.mmap } ) {
      const OpenFiles before;
      *call = 1;
      EXPECT_EQ( Fennet::TraceFile::create( folder.path(), Fennet::minRingSize ), nullptr );
      EXPECT_EQ( errno, call == &scripted.mmap ? ENOMEM : ENOSPC );
      EXPECT_EQ( *call, 0 );
      EXPECT_EQ( OpenFiles(), before );
      EXPECT_TRUE( folder.files().empty() );
   }
}

TEST_F( ATroubledRingTrace, isWrittenEvenIfASignalInterruptsTheCreationOfItsFile ) {
   scripted.posixFallocate = 1;
   scripted.posixFallocateError = EINTR;
   traceNumber( 1 );
   EXPECT_EQ( scripted.posixFallocate, 0 );
   EXPECT_EQ( folder.texts(), Texts{ "number 1" } );
}

TEST_F( ATroubledRingTrace, isWrittenByAnotherThreadOnceThereIsSpace ) {
   scripted.posixFallocate = 1;
   EXPECT_EQ(
      stderrOfThis( [] {
         traceNumber( 1 );
         traceNumber( 2 );
         std::thread( traceNumber, 3 ).join();
      } ),
      cannotCreate( "No space left on device" ) );
   EXPECT_EQ( folder.texts(), Texts{ "number 3" } );
}

TEST_F( ATroubledRingTrace, tellsNoBootWhereTheKernelDoesNot ) {
   scripted.openOfTheBootId = 1;
   traceNumber( 1 );
   EXPECT_EQ( scripted.openOfTheBootId, 0 );
   EXPECT_EQ( folder.records().at( 0 ).origin->bootId, "" );
}

TEST_F( ATroubledRingTrace, isLeftOutIfItCannotBeDescribed ) {
   for( const bool isShort : { false, true } ) {
      const TraceFolder another;
      const DefaultHandle itsHandle( another );
      traceNumber( 1 );
      scripted.pwrite = 1;
      scripted.pwriteShort = isShort;
      EXPECT_EQ(
         stderrOfThis( [] {
            for( int time = 0; time < 3; ++time ) {
               TRACE( 8, "undescribed" );
            }
            TRACE( 8, "undescribed, too" );
         } ),
         noMoreDescriptions );
      traceNumber( 2 );
      EXPECT_EQ( another.texts(), ( Texts{ "number 1", "number 2" } ) );
   }
}

// A limit on the size of files that a process may write, enforced with SIGXFSZ.
class ALimitedProcess : public ATroubledRingTrace {
 protected:
   template< typename Body >
   static std::string stderrWithLimit( std::size_t size, Body body ) {
      return stderrOf( [&] {
         rlimit limit{};
         getrlimit( RLIMIT_FSIZE, &limit );
         const rlim_t before = std::exchange( limit.rlim_cur, size );
         setrlimit( RLIMIT_FSIZE, &limit );
         body();
         // Coverage instrumentation writes files when the process ends.
         limit.rlim_cur = before;
         setrlimit( RLIMIT_FSIZE, &limit );
      } );
   }
};

TEST_F( ALimitedProcess, leavesNoRecordsIfARingIsTooLarge ) {
   EXPECT_EQ(
      stderrWithLimit( Fennet::minRingSize, [] { traceNumber( 1 ); } ),
      cannotCreate( "File too large" ) );
   EXPECT_TRUE( folder.files().empty() );
}

TEST_F( ALimitedProcess, leavesNoRecordsWhoseDescriptionsAreTooLarge ) {
   const std::string tooLarge =
      "Fennet: a trace file takes no more descriptions: File too large; records without one are "
      "left out\n";
   EXPECT_EQ(
      stderrWithLimit( Fennet::headerSize + Fennet::minRingSize, [] { traceNumber( 1 ); } ),
      tooLarge );
   EXPECT_EQ( folder.texts(), Texts{} );
}

class ATroubledTextTrace : public testing::Test {
 protected:
   ~ATroubledTextTrace() override { scripted = {}; }

   // Makes the trace's first write fail; returns what is written.
   static std::string writtenAfter( int error ) {
      scripted.writeToStderr = 1;
      scripted.writeError = error;
      testing::internal::CaptureStderr();
      const Orl::TraceHandle handle( "ATroubledTextTrace", false );
      errno = EXDEV;
      Tessel::fmtrace( handle, 3, "a.cpp", "f", 7, "", "text" );
      EXPECT_EQ( errno, EXDEV );
      EXPECT_EQ( scripted.writeToStderr, 0 );
      return testing::internal::GetCapturedStderr();
   }
};

TEST_F( ATroubledTextTrace, isWrittenWholeAfterASignalInterrupted ) {
   const std::string line = writtenAfter( EINTR );
   EXPECT_EQ( line.substr( line.find( "Troubled" ) ), "TroubledTextTrace/3 a.cpp:7 f: text\n" );
}

TEST_F( ATroubledTextTrace, isLostWhereStandardErrorTakesNothing ) {
   EXPECT_EQ( writtenAfter( ENOSPC ), "" );
}

} // namespace
} // namespace SodrelTest
