// The allocator's calls of the system, led here, and what the tests do with many blocks.
#include "Slabs.h"

#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <typeinfo>

namespace PlatformTest {

std::atomic< std::size_t > bytesMapped = 0;
std::atomic< int > mappingsBeforeFailure = noFailure;
std::atomic< bool > failsEverAfter = false;
std::atomic< int > failures = 0;
std::atomic< bool > threadStateRefused = false;
std::atomic< bool > heapRefused = false;

namespace {

bool mappingFails() {
   const int before = mappingsBeforeFailure--;
   const bool fails = before == 0 || ( before < 0 && failsEverAfter );
   failures += fails ? 1 : 0;
   return fails;
}

} // namespace
} // namespace PlatformTest

using PlatformTest::bytesMapped;
using PlatformTest::heapRefused;
using PlatformTest::mappingFails;
using PlatformTest::threadStateRefused;

// The linker leads the allocator's calls here.
extern "C" {
void* __real_mmap( void*, std::size_t, int, int, int, off_t );
int __real_munmap( void*, std::size_t );
int __real_pthread_setspecific( pthread_key_t, const void* );

void* __wrap_mmap( void* where, std::size_t size, int access, int flags, int file, off_t offset ) {
   if( mappingFails() ) {
      return MAP_FAILED;
   }
   bytesMapped += size;
   return __real_mmap( where, size, access, flags, file, offset );
}

int __wrap_munmap( void* where, std::size_t size ) {
   bytesMapped -= size;
   return __real_munmap( where, size );
}

int __wrap_pthread_setspecific( pthread_key_t key, const void* value ) {
   return threadStateRefused ? 1 : __real_pthread_setspecific( key, value );
}

void* __real__ZnwmSt11align_val_tRKSt9nothrow_t(
   std::size_t, std::align_val_t, const std::nothrow_t& ) noexcept;

void* __wrap__ZnwmSt11align_val_tRKSt9nothrow_t(
   std::size_t size, std::align_val_t alignment, const std::nothrow_t& none ) noexcept {
   return heapRefused ? nullptr
                      : __real__ZnwmSt11align_val_tRKSt9nothrow_t( size, alignment, none );
}
}

namespace PlatformTest {

using Tessel::slabAlloc;
using Tessel::slabStats;

void slabFree( void* block ) {
   Tessel::slabFree( block, typeid( Thing ) );
}

Blocks blocks( std::size_t count, std::size_t size ) {
   Blocks result;
   for( std::size_t i = 0; i < count; ++i ) {
      result.push_back( slabAlloc( size ) );
   }
   return result;
}

void freeAll( const Blocks& taken ) {
   for( void* const block : taken ) {
      slabFree( block );
   }
}

void inThread( const std::function< void() >& work ) {
   std::thread( work ).join();
}

TheSlabAllocator::~TheSlabAllocator() {
   EXPECT_EQ( bytesMapped.load(), slabStats().slabsMapped * slabBytes );
}

HeapKeepers::~HeapKeepers() {
   end_.set_value();
   for( std::thread& thread : threads_ ) {
      thread.join();
   }
}

bool HeapKeepers::more() {
   std::promise< bool > has;
   threads_.emplace_back( [&has, ended = ended_] {
      void* const block = slabAlloc( entityBytes );
      has.set_value( block != nullptr );
      ended.wait();
      if( block ) {
         slabFree( block );
      }
   } );
   return has.get_future().get();
}

void HeapKeepers::takeAllThatAreLeft() {
   heapRefused = true;
   while( more() ) {
   }
   heapRefused = false;
}

} // namespace PlatformTest
