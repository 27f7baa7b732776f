// The replaced operator new and operator delete.
#include "Memory.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

namespace SodrelTest {

thread_local void ( *duringAllocation )() = nullptr;

namespace {

thread_local bool failing = false;
thread_local bool failingForEver = false;
thread_local std::size_t left = 0;
thread_local std::size_t failed = 0;
std::atomic< std::size_t > blocks = 0;

void* allocate( std::size_t size, std::size_t alignment = alignof( std::max_align_t ) ) noexcept {
   if( failing && left-- == 0 ) {
      failing = failingForEver;
      left = 0;
      ++failed;
      return nullptr;
   }
   if( const auto work = std::exchange( duringAllocation, nullptr ) ) {
      work();
   }
   void* block = nullptr;
   if( posix_memalign( &block, std::max( alignment, sizeof( void* ) ), size ) == 0 ) {
      ++blocks;
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
   blocks -= block ? 1 : 0;
   std::free( block );
}

} // namespace

MemoryFailure::MemoryFailure( std::size_t before, bool forEver ) {
   left = before;
   failed = 0;
   failingForEver = forEver;
   failing = true;
}

MemoryFailure::~MemoryFailure() {
   failing = false;
}

std::size_t MemoryFailure::count() const {
   return failed;
}

std::size_t blocksAllocated() {
   return blocks;
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
