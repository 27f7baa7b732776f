// What the allocator and the tracker share: lists that only grow, and the end of a thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

namespace Tessel::Impl {

// A list whose elements stay until the process ends. T links them through its member next_.
//
// Thread: any, without a lock, so that a fork at any moment leaves it usable in the child.
template< typename T >
class GrowingList {
 public:
   void add( T* element ) noexcept {
      element->next_ = first_.load( std::memory_order_relaxed );
      // Release: who finds the element finds it whole.
      while( !first_.compare_exchange_weak( // GCOVR_EXCL_BR_LINE: a race
         element->next_, element, std::memory_order_release, std::memory_order_relaxed ) ) {
      }
   }
   [[nodiscard]] T* first() const noexcept { return first_.load( std::memory_order_acquire ); }
   [[nodiscard]] static T* next( const T* element ) noexcept { return element->next_; }

 private:
   std::atomic< T* > first_ = nullptr;
};

// Lets state->leave() run when the calling thread ends, after the destructors of its thread_local
// variables; it replaces the state of the same type given before. False when the system refuses.
//
// A thread that gives a state again while it ends has leave() run again.
template< typename T >
[[nodiscard]] bool atThreadEnd( T* state ) noexcept {
   static constinit std::atomic< std::uint64_t > keyPlusOne = 0;
   std::uint64_t known = keyPlusOne.load( std::memory_order_acquire );
   if( known == 0 ) {
      pthread_key_t key{};
      if( pthread_key_create( &key, []( void* left ) { static_cast< T* >( left )->leave(); } ) !=
          0 ) {
         return false;
      }
      // Not a lock around the creation: a fork must not leave one behind for the child.
      if( keyPlusOne.compare_exchange_strong(
             known, std::uint64_t{ key } + 1, std::memory_order_acq_rel,
             std::memory_order_acquire ) ) {
         known = std::uint64_t{ key } + 1;
      } else {
         pthread_key_delete( key );
      }
   }
   return pthread_setspecific( static_cast< pthread_key_t >( known - 1 ), state ) == 0;
}

} // namespace Tessel::Impl
