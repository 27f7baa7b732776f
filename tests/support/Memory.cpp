// The replaced operator new and operator delete.
#include <support/Memory.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

#include <malloc.h>

// clang has it among its run-time libraries, which need not be there.
#if __has_include( <sanitizer/asan_interface.h> )
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION( at, size ) static_cast< void >( 0 )
#endif

namespace SodrelTest {

thread_local void ( *duringAllocation )() = nullptr;

namespace {

// All of these belong to this thread.
thread_local bool watching = false;
thread_local bool paused = false;
thread_local std::size_t failingNumber = 0;
thread_local bool failingForEver = false;
thread_local std::size_t allocationCount = 0;
thread_local std::size_t failureCount = 0;

std::atomic< std::size_t > watchedBlockCount = 0;

// The last byte of a block tells whether it was watched when allocated, so that pointers to blocks
// are those that malloc returned, as leak checkers expect. To the address sanitizer that byte is
// beyond the block.
bool* mark( void* block ) {
   return static_cast< bool* >( block ) + malloc_usable_size( block ) - 1;
}

[[gnu::no_sanitize_address]] void watchedIs( void* block, bool watched ) {
   *mark( block ) = watched;
   watchedBlockCount += watched ? 1 : 0;
   ASAN_POISON_MEMORY_REGION( mark( block ), 1 );
}

[[gnu::no_sanitize_address]] bool isWatched( void* block ) {
   return *mark( block );
}

void* allocate( std::size_t size, std::size_t alignment = alignof( std::max_align_t ) ) noexcept {
   if( allocationFails() ) {
      errno = ENOMEM;
      return nullptr;
   }
   if( const auto work = std::exchange( duringAllocation, nullptr ) ) {
      work();
   }
   void* const block = alignment > alignof( std::max_align_t )
                          ? std::aligned_alloc( alignment, size + alignment )
                          : std::malloc( size + 1 );
   if( block ) {
      watchedIs( block, watching && !paused );
   }
   return block;
}

void* allocateOrThrow( std::size_t size, std::size_t alignment ) {
   void* const block = allocate( size, alignment );
   if( !block ) {
      throw std::bad_alloc();
   }
   return block;
}

void release( void* block ) noexcept {
   if( block ) {
      watchedBlockCount -= isWatched( block ) ? 1 : 0;
      std::free( block );
   }
}

} // namespace

WatchedMemory::WatchedMemory( std::size_t failing, bool forEver ) {
   failingNumber = failing;
   failingForEver = forEver;
   allocationCount = 0;
   failureCount = 0;
   watching = true;
}

WatchedMemory::~WatchedMemory() {
   watching = false;
}

std::size_t WatchedMemory::failures() const {
   return failureCount;
}

UnwatchedMemory::UnwatchedMemory( bool again ) : before_( paused ) {
   paused = !again;
}

UnwatchedMemory::~UnwatchedMemory() {
   paused = before_;
}

std::size_t watchedBlocks() {
   return watchedBlockCount;
}

bool allocationFails() {
   if( !watching || paused ) {
      return false;
   }
   ++allocationCount;
   const bool failing = failingForEver ? failingNumber != 0 && allocationCount >= failingNumber
                                       : allocationCount == failingNumber;
   failureCount += failing ? 1 : 0;
   return failing;
}

} // namespace SodrelTest

void* operator new( std::size_t size ) {
   return SodrelTest::allocateOrThrow( size, alignof( std::max_align_t ) );
}
void* operator new( std::size_t size, std::align_val_t alignment ) {
   return SodrelTest::allocateOrThrow( size, static_cast< std::size_t >( alignment ) );
}
void* operator new( std::size_t size, const std::nothrow_t& ) noexcept {
   return SodrelTest::allocate( size );
}
void* operator new( std::size_t size, std::align_val_t alignment, const std::nothrow_t& ) noexcept {
   return SodrelTest::allocate( size, static_cast< std::size_t >( alignment ) );
}
void operator delete( void* block ) noexcept {
   SodrelTest::release( block );
}
void operator delete( void* block, std::size_t ) noexcept {
   SodrelTest::release( block );
}
void operator delete( void* block, std::align_val_t ) noexcept {
   SodrelTest::release( block );
}
void operator delete( void* block, std::size_t, std::align_val_t ) noexcept {
   SodrelTest::release( block );
}
void operator delete( void* block, const std::nothrow_t& ) noexcept {
   SodrelTest::release( block );
}
void operator delete( void* block, std::align_val_t, const std::nothrow_t& ) noexcept {
   SodrelTest::release( block );
}
