// Wraps the C library's functions that traces call.
#include "ScriptedSystem.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string_view>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace SodrelTest {

ScriptedSystem scripted;

namespace {

// The bytes mapped by mmap and not yet unmapped by munmap.
std::atomic< std::size_t > mappedBytes = 0;

bool fails( int& calls ) {
   return calls > 0 && --calls == 0;
}

} // namespace

OpenFiles::OpenFiles() : mappedBytes( SodrelTest::mappedBytes ) {
   for( const auto& entry : std::filesystem::directory_iterator( "/proc/self/fd" ) ) {
      std::error_code gone;
      descriptors.insert( std::filesystem::read_symlink( entry.path(), gone ).string() );
   }
}

} // namespace SodrelTest

using SodrelTest::fails;
using SodrelTest::scripted;

extern "C" {

// These replace the C library's functions throughout this program.

int posix_fallocate( int fd, off_t offset, off_t length ) {
   if( fails( scripted.posixFallocate ) ) {
      return scripted.posixFallocateError;
   }
   return fallocate( fd, 0, offset, length ) == 0 ? 0 : errno;
}

// The linker redirects calls of these here; the sanitizers define some of the same names.

ssize_t realPwrite( int fd, const void* bytes, size_t size, off_t offset ) asm( "__real_" PWRITE );
ssize_t
wrappedPwrite( int fd, const void* bytes, size_t size, off_t offset ) asm( "__wrap_" PWRITE );
ssize_t wrappedPwrite( int fd, const void* bytes, size_t size, off_t offset ) {
   if( fails( scripted.pwrite ) ) {
      if( scripted.pwriteShort ) {
         return realPwrite( fd, bytes, size / 2, offset );
      }
      errno = ENOSPC;
      return -1;
   }
   return realPwrite( fd, bytes, size, offset );
}

void* realMmap( void* where, size_t size, int access, int kind, int fd, off_t offset ) asm(
   "__real_" MMAP );
void* wrappedMmap( void* where, size_t size, int access, int kind, int fd, off_t offset ) asm(
   "__wrap_" MMAP );
void* wrappedMmap( void* where, size_t size, int access, int kind, int fd, off_t offset ) {
   if( fails( scripted.mmap ) ) {
      errno = ENOMEM;
      return MAP_FAILED;
   }
   SodrelTest::mappedBytes += fd < 0 ? 0 : size;
   return realMmap( where, size, access, kind, fd, offset );
}

int __real_munmap( void* where, size_t size );
int __wrap_munmap( void* where, size_t size ) {
   SodrelTest::mappedBytes -= size;
   return __real_munmap( where, size );
}

ssize_t __real_write( int fd, const void* bytes, size_t size );
ssize_t __wrap_write( int fd, const void* bytes, size_t size ) {
   if( fd == STDERR_FILENO && fails( scripted.writeToStderr ) ) {
      errno = scripted.writeError;
      return -1;
   }
   return __real_write( fd, bytes, size );
}

int realOpen( const char* path, int flags, mode_t mode ) asm( "__real_" OPEN );
int wrappedOpen( const char* path, int flags, mode_t mode ) asm( "__wrap_" OPEN );
int wrappedOpen( const char* path, int flags, mode_t mode ) {
   EXPECT_NE( flags & O_CLOEXEC, 0 ) << path;
   if( std::string_view( path ).ends_with( "/boot_id" ) && fails( scripted.openOfTheBootId ) ) {
      errno = ENOENT;
      return -1;
   }
   return realOpen( path, flags, mode );
}

// What newer C libraries make of an open without a mode where they check its arguments.
int __wrap___open64_2( const char* path, int flags ) {
   return wrappedOpen( path, flags, 0 );
}

int realClock( clockid_t clock, timespec* time ) asm( "__real_" CLOCK_GETTIME );
int wrappedClock( clockid_t clock, timespec* time ) asm( "__wrap_" CLOCK_GETTIME );
int wrappedClock( clockid_t clock, timespec* time ) {
   if( !scripted.clocks ) {
      return realClock( clock, time );
   }
   constexpr std::int64_t second = 1'000'000'000;
   const std::int64_t monotonic = scripted.clocks->monotonic;
   *time = clock == CLOCK_MONOTONIC ? timespec{ static_cast< std::time_t >( monotonic / second ),
                                                static_cast< long >( monotonic % second ) }
                                    : scripted.clocks->realtime;
   return 0;
}

} // extern "C"
