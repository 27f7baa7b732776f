// The slab allocator: a heap of slabs for every thread, and what happens between threads.
//
// A slab is an aligned piece of memory with blocks of one size; its header is found by cutting off
// the low bits of a block's address. Each slab belongs to one heap and each heap to one thread at
// a time, which alone touches the headers. Other threads put the blocks that they free on the
// heap's list of returned blocks, where the owner finds them when it runs out of blocks. A thread
// that ends hands its heap over: a later thread takes it with all its slabs, and until then whoever
// frees a block of it does so as its owner. There is no lock, so that a fork at any moment leaves
// everything usable in the child; the heaps of threads that the child lacks only take blocks back.
#include <platform/memory/Slab.h>

#include <platform/memory/PerThread.h>
#include <platform/memory/SlabMemory.h>
#include <platform/value/TypeName.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

namespace Tessel {

namespace {

using Impl::Block;
using Impl::Slab;

constexpr std::size_t granule = alignof( std::max_align_t );
// Blocks of 16, 32, ... 1024 bytes; a larger one gets a slab of its own. Class 0 has no blocks.
constexpr std::size_t largestClass = 64;
constexpr std::size_t largestSize = largestClass * granule;

constexpr std::size_t classOf( std::size_t size ) noexcept {
   return ( size + granule - 1 ) / granule;
}

// Where the list of returned blocks leads while no thread owns the heap.
constinit Block handedOver;

} // namespace

// The slabs of one thread, which alone calls its operations; any thread may call give.
class alignas( 64 ) Impl::Heap {
 public:
   // A free block of the class; null when there is none at hand.
   void* pop( std::size_t sizeClass ) noexcept {
      Block* const block = free_[sizeClass];
      if( block != nullptr ) [[likely]] {
         free_[sizeClass] = nextOf( block );
         unpoison( block, sizeClass * granule );
      }
      return block;
   }
   // Brings free blocks of the class to hand; false when there is no memory.
   bool refill( std::size_t sizeClass ) noexcept;
   // Does the work that a block's return to the slab has made due.
   void settle( Slab* slab ) noexcept;
   void give( Slab* slab, Block* block ) noexcept;
   // Makes the calling thread the owner if the heap is handed over.
   bool claim() noexcept;
   void handOver() noexcept;
   // The owner ends.
   void leave() noexcept;

 private:
   friend GrowingList< Heap >;

   template< typename T >
   using PerClass = std::array< T*, largestClass + 1 >;

   void retire( std::size_t sizeClass ) noexcept;
   static void fullIs( Slab* slab ) noexcept;
   void openIs( Slab* slab, std::uint32_t blocksOut ) noexcept;
   void takeReturned() noexcept;

   // The blocks at hand; they come from the current slab, which counts them as being out.
   PerClass< Block > free_{};
   PerClass< Slab > current_{};
   // The other slabs that have free blocks.
   PerClass< Slab > open_{};
   Heap* next_ = nullptr;
   alignas( 64 ) std::atomic< Block* > returned_ = nullptr;
};

namespace {

using Impl::Heap;

constinit Impl::GrowingList< Heap > heaps;
// Stands for the heap that a thread does not have: it has no block, and no slab belongs to it.
constinit Heap noHeap;
[[gnu::tls_model( "initial-exec" )]] constinit thread_local Heap* ownHeap = &noHeap;

// Gives the calling thread a heap; false when there is no memory.
bool takeHeap() noexcept {
   Heap* heap = heaps.first();
   while( heap != nullptr && !heap->claim() ) {
      heap = Impl::GrowingList< Heap >::next( heap );
   }
   if( heap == nullptr ) {
      heap = new( std::nothrow ) Heap;
      if( heap == nullptr ) {
         return false;
      }
      heaps.add( heap );
   }
   if( !Impl::atThreadEnd( heap ) ) {
      heap->handOver();
      return false;
   }
   ownHeap = heap;
   return true;
}

[[gnu::noinline]] void* allocSlow( std::size_t size ) noexcept {
   if( size == 0 ) {
      return slabAlloc( 1 );
   }
   if( size > largestSize ) {
      Slab* const slab = Impl::mapSlab( size );
      return slab != nullptr ? slab->blocks() : nullptr;
   }
   if( ownHeap == &noHeap && !takeHeap() ) {
      return nullptr;
   }
   const std::size_t sizeClass = classOf( size );
   return ownHeap->refill( sizeClass ) ? ownHeap->pop( sizeClass ) : nullptr;
}

[[noreturn]] void noLiveBlock( const void* block, const std::type_info& type ) noexcept {
   std::fprintf( stderr, "slabFree: %p is no live block of %s\n", block, typeName( type ).data() );
   std::abort();
}

[[gnu::noinline]] void freeSlow( Slab* slab, Block* block, const std::type_info& type ) noexcept {
   if( slab->mark != Impl::slabMark ) {
      noLiveBlock( block, type );
   }
   if( slab->owner == nullptr ) {
      Impl::unmapSlab( slab );
   } else {
      slab->owner->give( slab, block );
   }
}

} // namespace

bool Heap::refill( std::size_t sizeClass ) noexcept {
   takeReturned();
   Slab*& slab = current_[sizeClass];
   if( slab != nullptr ) {
      free_[sizeClass] = slab->takeFree();
      if( free_[sizeClass] != nullptr ) {
         return true;
      }
      fullIs( slab );
   }
   slab = open_[sizeClass];
   if( slab != nullptr ) {
      slab->unlink();
   } else {
      slab = Impl::takeSlab();
      if( slab == nullptr ) {
         return false;
      }
      slab->beginBlocks( this, sizeClass * granule );
   }
   free_[sizeClass] = slab->takeFree();
   return true;
}

[[gnu::noinline]] void Heap::settle( Slab* slab ) noexcept {
   if( slab->full ) {
      openIs( slab, slab->capacity - 1 );
   } else {
      slab->unlink();
      Impl::giveSlab( slab );
   }
}

void Heap::fullIs( Slab* slab ) noexcept {
   slab->full = true;
   slab->releasesLeft = 1;
}

void Heap::openIs( Slab* slab, std::uint32_t blocksOut ) noexcept {
   slab->full = false;
   slab->releasesLeft = blocksOut;
   slab->linkInto( open_[classOf( slab->blockBytes )] );
}

// Gives the blocks at hand back to the current slab, and that slab to where it then belongs.
void Heap::retire( std::size_t sizeClass ) noexcept {
   Slab* const slab = std::exchange( current_[sizeClass], nullptr );
   if( slab == nullptr ) {
      return;
   }
   Block* block = std::exchange( free_[sizeClass], nullptr );
   while( block != nullptr ) {
      Block* const next = nextOf( block );
      slab->push( block );
      block = next;
   }
   const std::uint32_t blocksOut = slab->releasesLeft - 1;
   if( blocksOut == 0 ) {
      Impl::giveSlab( slab );
   } else if( blocksOut == slab->capacity ) {
      fullIs( slab );
   } else {
      openIs( slab, blocksOut );
   }
}

void Heap::takeReturned() noexcept {
   if( returned_.load( std::memory_order_relaxed ) == nullptr ) {
      return;
   }
   // Acquire: what the other threads did to the blocks comes before their next use.
   Block* block = returned_.exchange( nullptr, std::memory_order_acquire );
   while( block != nullptr ) {
      Block* const next = nextOf( block );
      Slab* const slab = Impl::slabOf( block );
      if( slab->push( block ) ) {
         settle( slab );
      }
      block = next;
   }
}

void Heap::give( Slab* slab, Block* block ) noexcept {
   poison( block, slab->blockBytes );
   // Relaxed: nothing is read through the head here.
   Block* head = returned_.load( std::memory_order_relaxed );
   for( ;; ) {
      if( head != &handedOver ) {
         nextIs( block, head );
         // Release: what this thread did to the block comes before its next use.
         if( returned_.compare_exchange_weak( // GCOVR_EXCL_BR_LINE: a race
                head, block, std::memory_order_release, std::memory_order_relaxed ) ) {
            return;
         }
      } else if( claim() ) { // GCOVR_EXCL_BR_LINE: a race
         if( slab->push( block ) ) {
            settle( slab );
         }
         handOver();
         return;
      } else {
         head = returned_.load( std::memory_order_relaxed ); // GCOVR_EXCL_LINE: a race
      }
   }
}

bool Heap::claim() noexcept {
   Block* expected = &handedOver;
   // Acquire: what the last owner did to the heap comes before what this thread does.
   return returned_.compare_exchange_strong(
      expected, nullptr, std::memory_order_acquire, std::memory_order_relaxed );
}

void Heap::handOver() noexcept {
   Block* none = nullptr;
   // Release: the other side of claim. A block that comes in meanwhile is taken first.
   // GCOVR_EXCL_START: a race
   while( !returned_.compare_exchange_weak(
      none, &handedOver, std::memory_order_release, std::memory_order_relaxed ) ) {
      takeReturned();
      none = nullptr;
   }
   // GCOVR_EXCL_STOP
}

void Heap::leave() noexcept {
   ownHeap = &noHeap;
   takeReturned();
   for( std::size_t sizeClass = 1; sizeClass <= largestClass; ++sizeClass ) {
      retire( sizeClass );
   }
   handOver();
}

void* slabAlloc( std::size_t size ) noexcept {
   if( size <= largestSize ) [[likely]] {
      if( void* const block = ownHeap->pop( classOf( size ) ) ) [[likely]] {
         return block;
      }
   }
   return allocSlow( size );
}

void slabFree( void* memory, const std::type_info& type ) noexcept {
   auto* const block = static_cast< Block* >( memory );
   Slab* const slab = Impl::slabOf( block );
   if( Impl::isPoisoned( block ) ) { // GCOVR_EXCL_BR_LINE: with the address sanitizer only
      noLiveBlock( block, type );    // GCOVR_EXCL_LINE
   }
   if( slab->owner != ownHeap ) [[unlikely]] {
      freeSlow( slab, block, type );
      return;
   }
#ifndef NDEBUG
   if( slab->free == block ) {
      noLiveBlock( block, type );
   }
#endif
   if( slab->push( block ) ) [[unlikely]] {
      slab->owner->settle( slab );
   }
}

SlabStats slabStats() noexcept {
   return { Impl::slabsMapped() };
}

} // namespace Tessel
