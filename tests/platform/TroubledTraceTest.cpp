// Traces where the system refuses: the program goes on, and is told once.
#include <platform/trace/Trace.h>
#include <platform/trace/TraceFile.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Which call of a system function fails next, counted from 1; 0 for none.
struct Failing {
   int posixFallocate = 0;
   int pwrite = 0;
   bool pwriteShort = false;
   int mmap = 0;
   int openOfTheBootId = 0;
   int writeToStderr = 0;
   int writeError = 0;
} failing;

// What mmap has given and munmap has not yet taken back.
std::size_t bytesMapped = 0;

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

// The linker leads calls of these here; the sanitizers have some of the same names.
extern "C" {

void* __real_mmap( void* where, size_t size, int access, int kind, int fd, off_t offset );
void* __wrap_mmap( void* where, size_t size, int access, int kind, int fd, off_t offset ) {
   if( fails( failing.mmap ) ) {
      errno = ENOMEM;
      return MAP_FAILED;
   }
   bytesMapped += ( kind & MAP_FIXED ) != 0 ? 0 : size;
   return __real_mmap( where, size, access, kind, fd, offset );
}

int __real_munmap( void* where, size_t size );
int __wrap_munmap( void* where, size_t size ) {
   bytesMapped -= size;
   return __real_munmap( where, size );
}

ssize_t __real_write( int fd, const void* bytes, size_t size );
ssize_t __wrap_write( int fd, const void* bytes, size_t size ) {
   if( fd == STDERR_FILENO && fails( failing.writeToStderr ) ) {
      errno = failing.writeError;
      return -1;
   }
   return __real_write( fd, bytes, size );
}

int __real_open( const char* path, int flags, mode_t mode );
int __wrap_open( const char* path, int flags, mode_t mode ) {
   if( std::string_view( path ).ends_with( "/boot_id" ) && fails( failing.openOfTheBootId ) ) {
      errno = ENOENT;
      return -1;
   }
   return __real_open( path, flags, mode );
}

} // extern "C"

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
      return "Fennet: cannot create a trace file in \"" + folder.path().string() + "\": " + reason +
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

TEST_F( ATroubledRingTrace, isLeftOutWhereAThousandFilesOfTheThreadAreAlready ) {
   const std::string start =
      folder.path() / ( std::to_string( getpid() ) + "-" + std::to_string( gettid() ) + "." );
   for( int number = 0; number < 1000; ++number ) {
      std::ofstream( start + std::to_string( number ) + ".fennet" );
   }
   testing::internal::CaptureStderr();
   traceNumber( 1 );
   EXPECT_EQ( testing::internal::GetCapturedStderr(), noFileCanBeMade( "File exists" ) );
   EXPECT_EQ( folder.files().size(), 1000 );
}

TEST_F( ATroubledRingTrace, tellsNoBootWhereTheKernelDoesNot ) {
   failing.openOfTheBootId = 1;
   traceNumber( 1 );
   EXPECT_EQ( failing.openOfTheBootId, 0 );
   const std::vector< Fennet::TimedRecord > records = folder.records();
   ASSERT_EQ( records.size(), 1 );
   EXPECT_EQ( records[0].origin->bootId, "" );
}

class AFileThatIsNotMapped : public ATroubledRingTrace,
                             public testing::WithParamInterface< int > {};

TEST_P( AFileThatIsNotMapped, isNotLeftBehind ) {
   failing.mmap = GetParam();
   testing::internal::CaptureStderr();
   traceNumber( 1 );
   EXPECT_EQ( testing::internal::GetCapturedStderr(), noFileCanBeMade( "Cannot allocate memory" ) );
   EXPECT_EQ( failing.mmap, 0 );
   EXPECT_TRUE( folder.files().empty() );
}

std::size_t openFiles() {
   const std::filesystem::directory_iterator files( "/proc/self/fd" );
   return static_cast< std::size_t >( std::distance( begin( files ), end( files ) ) );
}

TEST_P( AFileThatIsNotMapped, leavesNothingOpenOrMapped ) {
   EXPECT_NE( Fennet::TraceFile::create( folder.path(), Fennet::minRingSize ), nullptr );
   const std::size_t filesBefore = openFiles();
   const std::size_t bytesBefore = bytesMapped;
   failing.mmap = GetParam();
   EXPECT_EQ( Fennet::TraceFile::create( folder.path(), Fennet::minRingSize ), nullptr );
   EXPECT_EQ( openFiles(), filesBefore );
   EXPECT_EQ( bytesMapped, bytesBefore );
}

TEST_F( ATroubledRingTrace, isWrittenWhereAllButTheLastOfAThousandFilesAreAlready ) {
   const std::string start =
      folder.path() / ( std::to_string( getpid() ) + "-" + std::to_string( gettid() ) + "." );
   for( int number = 0; number < 999; ++number ) {
      std::ofstream( start + std::to_string( number ) + ".fennet" );
   }
   traceNumber( 1 );
   EXPECT_TRUE( std::filesystem::exists( start + "999.fennet" ) );
}

INSTANTIATE_TEST_SUITE_P(, AFileThatIsNotMapped, testing::Values( 1 ) );

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

class ATroubledTextTrace : public testing::Test {
 protected:
   ~ATroubledTextTrace() override { failing = {}; }

   // The first write of the trace fails; gives what is written, and leaves errno as it finds it.
   static std::string writtenAfter( int error ) {
      failing.writeToStderr = 1;
      failing.writeError = error;
      testing::internal::CaptureStderr();
      const Orl::TraceHandle handle( "ATroubledTextTrace", false );
      errno = 0;
      Tessel::fmtrace( handle, 3, "a.cpp", "f", 7, "", "text" );
      EXPECT_EQ( errno, 0 );
      EXPECT_EQ( failing.writeToStderr, 0 );
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
