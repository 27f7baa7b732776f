// Creating a trace file, making room in its ring, and writing descriptions and clock pairs.
#include <platform/trace/TraceFile.h>

#include <platform/trace/Line.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Fennet {

using Tessel::Impl::HeldSignal;
using Tessel::Impl::KeepErrno;

namespace {

void readBootId( char ( &bootId )[40] ) {
   const int fd = open( "/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC );
   if( fd >= 0 ) {
      constexpr std::size_t length = 36;
      [[maybe_unused]] const ssize_t got = read( fd, bootId, length );
      close( fd );
   }
}

// Creates and opens a file and sets `path`; an existing file, even a planted link, is left alone.
// Returns -1 and sets errno on failure.
int openNew( const std::string& folder, std::string& path ) {
   for( int number = 0;; ++number ) {
      path = folder + "/" + std::to_string( getpid() ) + "-" + std::to_string( gettid() ) + "." +
             std::to_string( number ) + ".fennet";
      const int fd = open( path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600 );
      if( fd != -1 || errno != EEXIST || number == 999 ) {
         return fd;
      }
   }
}

// Moves a file off the descriptors of the standard streams: a program that has closed one of them
// may still write to it. Returns -1 and sets errno on failure.
int moved( int fd ) {
   if( fd > STDERR_FILENO ) {
      return fd;
   }
   const int other = fcntl( fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1 );
   const KeepErrno keepErrno;
   close( fd );
   return other;
}

// Allocates and maps a new file. Returns null and sets errno on failure.
std::byte* mapNew( int fd, std::size_t size ) {
   // Exceeding the file size limit is an error like any other.
   const HeldSignal held( SIGXFSZ );
   // Allocate every block of the mapping: storing into a hole on a full disk would raise SIGBUS.
   do {
      errno = posix_fallocate( fd, 0, off_t( size ) );
   } while( errno == EINTR );
   if( errno != 0 ) {
      return nullptr;
   }
   void* const mapping = mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0 );
   return mapping == MAP_FAILED ? nullptr : static_cast< std::byte* >( mapping );
}

} // namespace

std::int64_t nanoseconds( clockid_t clock ) {
   timespec now{};
   clock_gettime( clock, &now );
   return std::int64_t{ now.tv_sec } * 1'000'000'000 + now.tv_nsec;
}

std::unique_ptr< TraceFile >
TraceFile::create( const std::string& folder, std::uint32_t ringSize ) {
   std::unique_ptr< TraceFile > file( new TraceFile( ringSize ) );
   return file->begins( folder ) ? std::move( file ) : nullptr;
}

TraceFile::~TraceFile() {
   const KeepErrno keepErrno;
   if( header_ ) {
      munmap( header_, std::size_t{ headerSize } + ringSize_ );
   }
   close( fd_ );
}

// Returns false and sets errno if the file cannot be created.
bool TraceFile::begins( const std::string& folder ) {
   const int fd = openNew( folder, path_ );
   if( fd == -1 ) {
      return false;
   }
   fd_ = moved( fd );
   std::byte* const mapping = fd_ == -1 ? nullptr : mapNew( fd_, headerSize + ringSize_ );
   if( !mapping ) {
      const KeepErrno keepErrno;
      unlink( path_.c_str() );
      return false;
   }
   ring_ = mapping + headerSize;
   header_ = new( mapping ) FileHeader{};
   header_->headerSize = headerSize;
   header_->ringSize = ringSize_;
   header_->pid = getpid();
   header_->tid = gettid();
   readBootId( header_->bootId );
   std::string_view( program_invocation_short_name )
      .copy( header_->program, sizeof header_->program - 1 );
   // Everything above is in the file before the magic: a reader that loads the magic with acquire
   // sees the rest, and a kill before this store leaves a file that holds nothing.
   header_->magic.store( fileMagic, std::memory_order_release );
   return true;
}

// Advances to the start of a block, discarding the old records there, and reads the clocks.
void TraceFile::startBlock() {
   if( end_ % blockSize != 0 ) {
      std::memset( ring_ + end_ % ringSize_, 0, sizeof( RecordHead::size ) );
      end_ += blockSize - end_ % blockSize;
   }
   // The tail must exclude the old records before their bytes change. A kill preserves program
   // order, so for that case only the compiler must not move a record's stores before this one. A
   // concurrent reader that has seen a changed byte and reads the tail again must find the new one.
   // A release fence between the stores ensures both.
   header_->tail.store(
      end_ < ringSize_ ? 0 : end_ + blockSize - ringSize_, std::memory_order_relaxed );
   std::atomic_thread_fence( std::memory_order_release );
   // Publishes a complete pair of readings; meanwhile the previous pair stays as it is.
   ++clockPairs_;
   header_->clocks[clockPairs_ % 2] = { nanoseconds( CLOCK_MONOTONIC ),
                                        nanoseconds( CLOCK_REALTIME ) };
   header_->clockPairs.store( clockPairs_, std::memory_order_release );
}

void TraceFile::recordIs( std::string_view record ) {
   const std::uint32_t size = alignedSize( static_cast< std::uint32_t >( record.size() ) );
   if( end_ % blockSize == 0 || end_ % blockSize + size > blockSize ) {
      startBlock();
   }
   std::memcpy( ring_ + end_ % ringSize_, record.data(), record.size() );
   end_ += size;
   // The single store that makes the record part of the file. Release: all its bytes are stored
   // before it, both for a concurrent reader and for a kill, which preserves program order.
   header_->end.store( end_, std::memory_order_release );
}

bool TraceFile::descriptionIs( int msgId, std::string_view description ) {
   if( full_ ) {
      return false;
   }
   const std::uint64_t place = headerSize + std::uint64_t{ ringSize_ } + descriptionsSize_;
   // Not through the mapping: on a full disk, a write fails but a store would raise SIGBUS.
   const HeldSignal held( SIGXFSZ );
   errno = ENOSPC; // reported if the write is short
   const ssize_t written = pwrite( fd_, description.data(), description.size(), off_t( place ) );
   full_ = written != static_cast< ssize_t >( description.size() );
   if( full_ ) {
      Tessel::Impl::report(
         std::string( "Fennet: a trace file takes no more descriptions: " ) +
         std::strerror( errno ) + "; records without one are left out" );
      return false;
   }
   const auto index = static_cast< std::size_t >( msgId );
   described_.resize( std::max( described_.size(), index + 1 ) );
   described_[index] = true;
   descriptionsSize_ += description.size();
   // Publishes a complete description before the first record that needs it.
   header_->descriptionsSize.store( descriptionsSize_, std::memory_order_release );
   return true;
}

} // namespace Fennet
