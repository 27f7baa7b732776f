// Making a trace file, keeping room in its ring, and its descriptions and clock readings.
#include <platform/trace/TraceFile.h>

#include <platform/trace/Line.h>
#include <platform/trace/Ticks.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Fennet {

namespace {

std::uint64_t ticksNow( bool tsc ) {
#if defined( __x86_64__ )
   if( tsc ) {
      return __rdtsc();
   }
#endif
   return static_cast< std::uint64_t >( Impl::nanoseconds( CLOCK_MONOTONIC ) );
}

ClockReading readClocks( bool tsc ) {
   // An interruption between the clocks would skew the reading: the tightest of a few is taken.
   ClockReading tightest{};
   std::uint64_t width = ~std::uint64_t{ 0 };
   for( int attempt = 0; attempt < 4; ++attempt ) {
      const std::uint64_t before = ticksNow( tsc );
      const std::int64_t monotonic = Impl::nanoseconds( CLOCK_MONOTONIC );
      const std::uint64_t after = ticksNow( tsc );
      if( after - before < width ) {
         width = after - before;
         tightest = { before + width / 2, monotonic, Impl::nanoseconds( CLOCK_REALTIME ) };
      }
   }
   return tightest;
}

struct Clocks {
   bool tsc = Impl::tscIsInvariant();
   ClockReading first = readClocks( tsc );
};

const Clocks& clocks() {
   static const Clocks clocks;
   return clocks;
}

void readBootId( char ( &bootId )[40] ) {
   const int fd = open( "/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC );
   if( fd >= 0 ) {
      constexpr std::size_t length = 36;
      [[maybe_unused]] const ssize_t got = read( fd, bootId, length );
      close( fd );
   }
}

// Keeps stores before it before stores after it.
void releaseFence() {
#if defined( __SANITIZE_THREAD__ ) && !defined( __clang__ )
// The sanitizer does not know fences. What this one orders is read by other processes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#endif
   std::atomic_thread_fence( std::memory_order_release );
#if defined( __SANITIZE_THREAD__ ) && !defined( __clang__ )
#pragma GCC diagnostic pop
#endif
}

struct NewFile {
   std::string path;
   int fd;
};

// Opens a file that did not exist; what stands there already, a planted link too, is left alone.
NewFile openNew( const std::string& folder ) {
   const std::string start =
      folder + "/" + std::to_string( getpid() ) + "-" + std::to_string( gettid() ) + ".";
   for( int number = 0; number < 1000; ++number ) {
      std::string path = start + std::to_string( number ) + ".fennet";
      const int fd = open( path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600 );
      if( fd >= 0 || errno != EEXIST ) {
         return { std::move( path ), fd };
      }
   }
   return { {}, -1 };
}

// Maps the header and the ring, and the beginning of the ring a second time behind it, so that a
// record never has to be split.
std::byte* mapFile( int fd, std::size_t headerSize, std::size_t ringSize ) {
   const std::size_t fileSize = headerSize + ringSize;
   const std::size_t mirrorSize = headerSize; // whole pages, and no less than a record
   void* reserved =
      mmap( nullptr, fileSize + mirrorSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
   if( reserved == MAP_FAILED ) {
      return nullptr;
   }
   auto* const start = static_cast< std::byte* >( reserved );
   constexpr int access = PROT_READ | PROT_WRITE;
   constexpr int kind = MAP_SHARED | MAP_FIXED;
   if( mmap( start, fileSize, access, kind, fd, 0 ) == MAP_FAILED ||
       mmap( start + fileSize, mirrorSize, access, kind, fd, off_t( headerSize ) ) == MAP_FAILED ) {
      const Tessel::Impl::KeepErrno keepErrno;
      munmap( start, fileSize + mirrorSize );
      return nullptr;
   }
   return start;
}

} // namespace

std::unique_ptr< TraceFile >
TraceFile::create( const std::string& folder, std::uint32_t ringSize ) {
   const auto [path, fd] = openNew( folder );
   if( fd < 0 ) {
      return nullptr;
   }
   const auto headerSize = std::max< std::uint32_t >(
      maxRecordSize, static_cast< std::uint32_t >( sysconf( _SC_PAGESIZE ) ) );
   // Blocks for every byte of the mapping: a store into a hole of a full disk would be SIGBUS.
   errno = posix_fallocate( fd, 0, off_t( headerSize ) + off_t( ringSize ) );
   std::byte* const mapping = errno == 0 ? mapFile( fd, headerSize, ringSize ) : nullptr;
   if( !mapping ) {
      const Tessel::Impl::KeepErrno keepErrno;
      close( fd );
      unlink( path.c_str() );
      return nullptr;
   }
   return std::unique_ptr< TraceFile >( new TraceFile( fd, mapping, headerSize, ringSize ) );
}

TraceFile::TraceFile( int fd, std::byte* mapping, std::uint32_t headerSize, std::uint32_t ringSize )
   : header_( new( mapping ) FileHeader{} ),
     ring_( mapping + headerSize ),
     blockEnd_( ringSize / blocks ),
     mask_( ringSize - 1 ),
     tsc_( clocks().tsc ),
     fd_( fd ) {
   header_->headerSize = headerSize;
   header_->ringSize = ringSize;
   header_->pid = getpid();
   header_->tid = gettid();
   readBootId( header_->bootId );
   std::string_view( program_invocation_short_name )
      .copy( header_->program, sizeof header_->program - 1 );
   header_->first = clocks().first;
   readClocks();
   // Everything above is in the file before the magic says so: a reader that sees the magic with
   // acquire sees the rest, and a kill before it leaves a file that holds nothing.
   header_->magic.store( fileMagic, std::memory_order_release );
}

TraceFile::~TraceFile() {
   const std::size_t headerSize = header_->headerSize;
   munmap( header_, headerSize + ( mask_ + 1 ) + headerSize );
   close( fd_ );
}

// Makes room for a block of records and the one that may reach beyond it, by letting the oldest
// blocks go. That takes nothing but where each block began, so no old record is looked at.
void TraceFile::makeRoom() {
   const std::uint64_t ringSize = mask_ + 1;
   const std::uint64_t blockSize = ringSize / blocks;
   const std::uint64_t roomEnd = end_ + blockSize + maxRecordSize;

   blockStarts_[lastBlock_++ % blocks] = end_;
   std::uint64_t tail = end_;
   for( const std::uint64_t start : blockStarts_ ) {
      if( start + ringSize >= roomEnd ) {
         tail = std::min( tail, start );
      }
   }
   // First the tail says that the old records are gone, only then may their bytes change. A kill
   // keeps the program's order, so the compiler alone must not move a record's stores before this
   // one; for a reader of the living file, whoever has seen a changed byte and reads the tail
   // again must find the new one. A release fence between the stores gives both.
   header_->tail.store( tail, std::memory_order_relaxed );
   releaseFence();
   blockEnd_ = end_ + blockSize;
}

// Keeps the latest reading close to the latest record: the next is due when the time since the
// first has doubled, and after a second at most.
void TraceFile::readClocks() {
   const ClockReading now = Fennet::readClocks( tsc_ );
   const ClockReading& first = clocks().first;
   const std::uint64_t number = header_->readings.load( std::memory_order_relaxed ) + 1;
   header_->recent[number % 2] = now;
   // Publishes a whole reading; the one before stays in place until the next but one.
   header_->readings.store( number, std::memory_order_release );

   const auto ticks = static_cast< double >( now.ticks - first.ticks );
   const auto elapsed =
      static_cast< double >( std::max< std::int64_t >( now.monotonic - first.monotonic, 1 ) );
   constexpr double second = 1e9;
   clocksDue_ =
      now.ticks + static_cast< std::uint64_t >( ticks * std::min( second / elapsed, 1.0 ) );
}

void TraceFile::descriptionIs( int msgId, std::string_view description ) {
   if( full_ ) {
      return;
   }
   const Tessel::Impl::KeepErrno keepErrno;
   const std::uint64_t size = header_->descriptionsSize.load( std::memory_order_relaxed );
   const std::uint64_t place = header_->headerSize + ( mask_ + 1 ) + size;
   // Not through the mapping: a write says that the disk is full, a store would be SIGBUS.
   errno = ENOSPC; // the reason where only a part was written
   const ssize_t written = pwrite( fd_, description.data(), description.size(), off_t( place ) );
   if( written < 0 || static_cast< std::size_t >( written ) != description.size() ) {
      full_ = true;
      Tessel::Impl::report( { "Fennet: a trace file takes no more descriptions: ",
                              strerror( errno ), "; records without one are left out" } );
      return;
   }
   const auto index = static_cast< std::size_t >( msgId );
   described_.resize( std::max( described_.size(), index + 1 ) );
   described_[index] = Described::yes;
   // Publishes a whole description, before the first record that needs it.
   header_->descriptionsSize.store( size + description.size(), std::memory_order_release );
}

} // namespace Fennet
