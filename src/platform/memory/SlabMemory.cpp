// How slabs are mapped, kept in reserve and cut into blocks.
#include <platform/memory/SlabMemory.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <new>
#include <sys/mman.h>
#include <utility>

#ifdef TESSEL_ASAN
#include <sanitizer/lsan_interface.h>
#endif

namespace Tessel::Impl {

namespace {

// How much of a slab becomes free blocks at a time: a page is touched when it is needed.
constexpr std::uint32_t carveBytes = 4096;

constinit std::atomic< std::size_t > mappedCount = 0;
// Empty slabs for the whole process; slots, not a list, so that they need no lock.
constinit std::array< std::atomic< Slab* >, 16 > reserve{};

} // namespace

Slab* mapSlab( std::size_t size ) noexcept {
   if( size > std::numeric_limits< std::uint32_t >::max() * slabBytes ) {
      return nullptr;
   }
   const std::size_t slabs = ( sizeof( Slab ) + size + slabBytes - 1 ) / slabBytes;
   const std::size_t bytes = slabs * slabBytes;
   // Large enough that an aligned piece of the size wanted lies in it; the rest is given back.
   void* const memory = mmap(
      nullptr, bytes + slabBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
   if( memory == MAP_FAILED ) {
      return nullptr;
   }
   char* const begin = static_cast< char* >( memory );
   const std::size_t before = -reinterpret_cast< std::uintptr_t >( begin ) % slabBytes;
   if( before != 0 ) {
      munmap( begin, before );
   }
   munmap( begin + before + bytes, slabBytes - before );
   mappedCount.fetch_add( 1, std::memory_order_relaxed );
#ifdef TESSEL_ASAN
   // What a block points to is no leak.
   __lsan_register_root_region( begin + before, bytes );
#endif
   Slab* const slab = new( begin + before ) Slab;
   slab->slabs = static_cast< std::uint32_t >( slabs );
   return slab;
}

void unmapSlab( Slab* slab ) noexcept {
   const std::size_t bytes = slab->slabs * slabBytes;
   unpoison( slab, bytes );
#ifdef TESSEL_ASAN
   __lsan_unregister_root_region( slab, bytes );
#endif
   mappedCount.fetch_sub( 1, std::memory_order_relaxed );
   munmap( slab, bytes );
}

Slab* takeSlab() noexcept {
   for( std::atomic< Slab* >& slot : reserve ) {
      // Acquire and release: what the last owner did to the slab comes before the next one's work.
      if( Slab* const slab = slot.exchange( nullptr, std::memory_order_acquire ) ) {
         return slab;
      }
   }
   return mapSlab( slabBytes - sizeof( Slab ) );
}

void giveSlab( Slab* slab ) noexcept {
   for( std::atomic< Slab* >& slot : reserve ) {
      Slab* none = nullptr;
      if( slot.compare_exchange_strong(
             none, slab, std::memory_order_release, std::memory_order_relaxed ) ) {
         return;
      }
   }
   unmapSlab( slab );
}

std::size_t slabsMapped() noexcept {
   return mappedCount.load( std::memory_order_relaxed );
}

void Slab::beginBlocks( Heap* heap, std::size_t bytesPerBlock ) noexcept {
   owner = heap;
   free = nullptr;
   blockBytes = static_cast< std::uint32_t >( bytesPerBlock );
   capacity = static_cast< std::uint32_t >( ( slabBytes - sizeof( Slab ) ) / bytesPerBlock );
   carved = 0;
   poison( blocks(), slabBytes - sizeof( Slab ) );
}

Block* Slab::takeFree() noexcept {
   Block* list = std::exchange( free, nullptr );
   if( list == nullptr ) {
      const std::uint32_t count = std::min( capacity - carved, carveBytes / blockBytes );
      carved += count;
      // From the last one down, so that the list runs up.
      char* block = blocks() + std::size_t{ carved } * blockBytes;
      for( std::uint32_t i = 0; i < count; ++i ) {
         block -= blockBytes;
         nextIs( reinterpret_cast< Block* >( block ), list );
         list = reinterpret_cast< Block* >( block );
      }
   }
   releasesLeft = carved + 1;
   return list;
}

void Slab::linkInto( Slab*& list ) noexcept {
   next = list;
   link = &list;
   if( next != nullptr ) {
      next->link = &next;
   }
   list = this;
}

void Slab::unlink() noexcept {
   *link = next;
   if( next != nullptr ) {
      next->link = link;
   }
}

} // namespace Tessel::Impl
