// Ring-buffer traces where the file system refuses: the program goes on, and is told once.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Which call of a system function fails next, counted from 1; 0 for none.
struct Failing {
   int posixFallocate = 0;
   int pwrite = 0;
   bool pwriteShort = false;
} failing;

bool fails( int& calls ) {
   return calls > 0 && --calls == 0;
}

} // namespace

// These stand for the C library's throughout this program.

extern "C" int posix_fallocate( int fd, off_t offset, off_t length ) {
   if( fails( failing.posixFallocate ) ) {
      return ENOSPC;
   }
   return fallocate( fd, 0, offset, length ) == 0 ? 0 : errno;
}

extern "C" ssize_t pwrite( int fd, const void* bytes, size_t size, off_t offset ) {
   if( fails( failing.pwrite ) ) {
      if( failing.pwriteShort ) {
         return syscall( SYS_pwrite64, fd, bytes, size / 2, offset );
      }
      errno = ENOSPC;
      return -1;
   }
   return syscall( SYS_pwrite64, fd, bytes, size, offset );
}

namespace {

using Fennet::DefaultHandle;
using Fennet::TraceFolder;
using Texts = std::vector< std::string >;

TRACE_FACILITY( "TroubledTraceTest" );

void traceNumber( int number ) {
   TRACE( 8, "number {}", number );
}

class ATroubledRingTrace : public testing::Test {
 protected:
   ~ATroubledRingTrace() override { failing = {}; }

   std::string noFileCanBeMade( const std::string& reason ) const {
      return "Fennet: no trace file can be made in \"" + folder.path().string() + "\": " + reason +
             "; the thread leaves no records\n";
   }

   TraceFolder folder;
   DefaultHandle handle{ folder };
};

TEST_F( ATroubledRingTrace, isLeftOutWithOneWordWhereTheFolderIsMissing ) {
   std::filesystem::remove( folder.path() );
   testing::internal::CaptureStderr();
   traceNumber( 1 );
   traceNumber( 2 );
   std::thread( traceNumber, 3 ).join();
   EXPECT_EQ(
      testing::internal::GetCapturedStderr(), noFileCanBeMade( "No such file or directory" ) );
}

TEST_F( ATroubledRingTrace, goesOnInItsFileWhenTheFolderVanishes ) {
   traceNumber( 1 );
   std::filesystem::remove_all( folder.path() );
   testing::internal::CaptureStderr();
   for( int number = 0; number < 10'000; ++number ) {
      traceNumber( number );
   }
   TRACE( 8, "a description that is new" );
   EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
}

TEST_F( ATroubledRingTrace, leavesAPlantedLinkAndItsTargetAlone ) {
   const std::string name = std::to_string( getpid() ) + "-" + std::to_string( gettid() );
   const auto target = folder.path() / "target";
   std::ofstream( target ) << "precious";
   std::filesystem::create_symlink( target, folder.path() / ( name + ".0.fennet" ) );
   std::filesystem::create_symlink( "nowhere", folder.path() / ( name + ".1.fennet" ) );
   traceNumber( 1 );
   EXPECT_EQ( std::filesystem::file_size( target ), std::string( "precious" ).size() );
   EXPECT_FALSE( std::filesystem::exists( folder.path() / "nowhere" ) );
   EXPECT_TRUE( std::filesystem::is_regular_file( folder.path() / ( name + ".2.fennet" ) ) );
}

TEST_F( ATroubledRingTrace, leavesNoFileBehindWhenTheDiskIsFull ) {
   failing.posixFallocate = 1;
   testing::internal::CaptureStderr();
   traceNumber( 1 );
   EXPECT_EQ(
      testing::internal::GetCapturedStderr(), noFileCanBeMade( "No space left on device" ) );
   EXPECT_TRUE( folder.files().empty() );
   traceNumber( 2 );
   EXPECT_TRUE( folder.files().empty() );
}

TEST_F( ATroubledRingTrace, isWrittenByAnotherThreadOnceThereIsSpace ) {
   failing.posixFallocate = 1;
   testing::internal::CaptureStderr();
   traceNumber( 1 );
   std::thread( traceNumber, 2 ).join();
   EXPECT_EQ(
      testing::internal::GetCapturedStderr(), noFileCanBeMade( "No space left on device" ) );
   EXPECT_EQ( folder.texts(), Texts{ "number 2" } );
}

class AFileThatTakesNoDescription : public ATroubledRingTrace,
                                    public testing::WithParamInterface< bool > {};

TEST_P( AFileThatTakesNoDescription, takesRecordsOfThoseItHas ) {
   traceNumber( 1 );
   failing.pwrite = 1;
   failing.pwriteShort = GetParam();
   testing::internal::CaptureStderr();
   for( int time = 0; time < 3; ++time ) {
      TRACE( 8, "undescribed" );
   }
   TRACE( 8, "undescribed, too" );
   EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "Fennet: a trace file takes no more descriptions: No space left on device; records without "
      "one are left out\n" );
   traceNumber( 2 );
   EXPECT_EQ( folder.texts(), ( Texts{ "number 1", "number 2" } ) );
}

INSTANTIATE_TEST_SUITE_P(, AFileThatTakesNoDescription, testing::Bool() );

} // namespace
