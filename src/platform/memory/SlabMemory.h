// One slab: its header, its blocks, and where its memory comes from.
#pragma once

#include <cstddef>
#include <cstdint>

#ifdef __SANITIZE_ADDRESS__
#define TESSEL_ASAN 1
#elif defined( __has_feature )
#if __has_feature( address_sanitizer )
#define TESSEL_ASAN 1
#endif
#endif

#ifdef TESSEL_ASAN
#include <sanitizer/asan_interface.h>
#define TESSEL_TOUCHES_POISON __attribute__( ( no_sanitize( "address" ), noinline ) )
#else
#define TESSEL_TOUCHES_POISON
#endif

namespace Tessel::Impl {

class Heap;

// A free block.
struct Block {
   Block* next = nullptr;
};

// Under the address sanitizer a free block is poisoned, its link to the next one included.
TESSEL_TOUCHES_POISON inline Block* nextOf( const Block* block ) noexcept {
   return block->next;
}
TESSEL_TOUCHES_POISON inline void nextIs( Block* block, Block* next ) noexcept {
   block->next = next;
}
inline void poison( [[maybe_unused]] void* begin, [[maybe_unused]] std::size_t size ) noexcept {
#ifdef TESSEL_ASAN
   ASAN_POISON_MEMORY_REGION( begin, size );
#endif
}
inline void unpoison( [[maybe_unused]] void* begin, [[maybe_unused]] std::size_t size ) noexcept {
#ifdef TESSEL_ASAN
   ASAN_UNPOISON_MEMORY_REGION( begin, size );
#endif
}
inline bool isPoisoned( [[maybe_unused]] const void* address ) noexcept {
#ifdef TESSEL_ASAN
   return __asan_address_is_poisoned( address ) != 0;
#else
   return false;
#endif
}

inline constexpr std::size_t slabBytes = std::size_t{ 64 } * 1024;
inline constexpr std::uint64_t slabMark = 0x736c61626d61726b;

// The header of a slab, at its start; the blocks follow it.
struct alignas( 64 ) Slab {
   // Gives the slab to a heap and its memory to blocks of one size.
   void beginBlocks( Heap* heap, std::size_t bytesPerBlock ) noexcept;
   // Hands all free blocks out as a list, after cutting some off the unused memory when there are
   // none; null when every block is out.
   Block* takeFree() noexcept;
   // Takes a block back; true when that gives the heap work to do with this slab.
   bool push( Block* block ) noexcept {
      nextIs( block, free );
      free = block;
      poison( block, blockBytes );
      return --releasesLeft == 0;
   }

   void linkInto( Slab*& list ) noexcept;
   void unlink() noexcept;

   char* blocks() noexcept { return reinterpret_cast< char* >( this + 1 ); }

   Heap* owner = nullptr; // null for the slab of one large block
   Block* free = nullptr;
   // How many blocks must come back before the heap has work to do with this slab: 1 for a full
   // one; as many as are out for one with free blocks; one more, so never, for the one that the
   // heap takes blocks from.
   std::uint32_t releasesLeft = 0;
   bool full = false;
   std::uint32_t blockBytes = 0;
   std::uint32_t capacity = 0;
   std::uint32_t carved = 0; // blocks cut off so far
   std::uint32_t slabs = 1;  // times slabBytes is the memory mapped
   Slab* next = nullptr;
   Slab** link = nullptr; // what points to this slab in the list that it is in
   std::uint64_t mark = slabMark;
};

inline Slab* slabOf( void* block ) noexcept {
   const std::size_t offset = reinterpret_cast< std::uintptr_t >( block ) % slabBytes;
   return reinterpret_cast< Slab* >( static_cast< char* >( block ) - offset );
}

// A slab of its own for one block of size bytes; null when there is no memory.
Slab* mapSlab( std::size_t size ) noexcept;
void unmapSlab( Slab* slab ) noexcept;

// A slab for small blocks, from a small reserve of empty ones or mapped; null when there is no
// memory.
Slab* takeSlab() noexcept;
void giveSlab( Slab* slab ) noexcept;

std::size_t slabsMapped() noexcept;

} // namespace Tessel::Impl
