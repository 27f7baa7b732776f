// The slab allocator: lists of free blocks of a few sizes, cut from slabs, behind one mutex.
//
// The standard library's pools are not an option: libstdc++ 12's crash when an allocation fails.
#include <platform/memory/Slab.h>

#include <platform/value/Exception.h>
#include <platform/value/LockedByForks.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <sys/single_threaded.h>
#include <utility>

#if defined( __SANITIZE_ADDRESS__ )
#define TESSEL_ASAN
#elif defined( __has_feature )
#if __has_feature( address_sanitizer )
#define TESSEL_ASAN
#endif
#endif

namespace Tessel {

namespace {

// The header of a block, right before the memory that slabAlloc returns. Sizes include it.
struct alignas( slabAlignment ) Block {
   std::size_t bytes;
   Block* next; // in the list of free blocks; &live in a block that is not free
};

constinit Block live{};

constexpr std::size_t slabBytes = 16384;
// Some 32-bit architectures' operator new aligns to less by default.
constexpr std::align_val_t alignment{ slabAlignment };
// Larger blocks are allocated by operator new and freed by operator delete.
#ifdef TESSEL_ASAN
constexpr std::size_t largestInSlab = 0; // so that the sanitizer sees every block
#else
constexpr std::size_t largestInSlab = 1024;
#endif

constinit std::mutex mutex;
// By size, in headers. Slabs are never freed, so entities may be destroyed at any time.
constinit std::array< Block*, largestInSlab / sizeof( Block ) + 1 > freeBlocks{};

// Holds the mutex unless the process is known to be single-threaded.
std::unique_lock< std::mutex > lock() {
   return __libc_single_threaded ? std::unique_lock( mutex, std::defer_lock )
                                 : std::unique_lock( mutex );
}

[[maybe_unused]] const int mutexIsLockedByForks = Impl::lockedByForks< mutex >();

// Allocates a slab, which is never freed, and cuts it into blocks; adds none if there is no memory.
// NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)
[[gnu::noinline]] void addBlocks( std::size_t bytes ) noexcept {
   auto* const slab =
      static_cast< std::byte* >( operator new( slabBytes, alignment, std::nothrow ) );
   Block*& first = freeBlocks[bytes / sizeof( Block )];
   for( std::size_t at = 0; slab && at + bytes <= slabBytes; at += bytes ) {
      first = new( slab + at ) Block{ bytes, first };
   }
}
// NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

// Takes a free block from a slab; returns null if there is no memory.
Block* take( std::size_t bytes ) noexcept {
   const auto locked = lock();
   Block*& first = freeBlocks[bytes / sizeof( Block )];
   if( !first ) {
      addBlocks( bytes );
   }
   Block* const block = first;
   if( block ) {
      first = std::exchange( block->next, &live );
   }
   return block;
}

[[noreturn]] void noLiveBlock( const void* memory, const std::type_info& type ) noexcept {
   std::fprintf( stderr, "slabFree: %p is no live block of %s\n", memory, typeName( type ).data() );
   std::abort();
}

} // namespace

void* slabAlloc( std::size_t size ) noexcept {
   // No object is larger than PTRDIFF_MAX.
   if( size > PTRDIFF_MAX - sizeof( Block ) ) {
      return nullptr;
   }
   const std::size_t bytes = sizeof( Block ) + size;
   if( bytes <= largestInSlab ) {
      Block* const block =
         take( ( bytes + sizeof( Block ) - 1 ) / sizeof( Block ) * sizeof( Block ) );
      return block ? block + 1 : nullptr;
   }
   void* const memory = operator new( bytes, alignment, std::nothrow );
   return memory ? new( memory ) Block{ bytes, &live } + 1 : nullptr;
}

void slabFree( void* memory, const std::type_info& type ) noexcept {
   Block* const block = static_cast< Block* >( memory ) - 1;
   if( block->next != &live ) {
      noLiveBlock( memory, type );
   }
   if( block->bytes <= largestInSlab ) {
      const auto locked = lock();
      Block*& first = freeBlocks[block->bytes / sizeof( Block )];
      block->next = std::exchange( first, block );
   } else {
      operator delete( block, alignment );
   }
}

} // namespace Tessel
