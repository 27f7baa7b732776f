// The base of every entity: use count, flags and the virtual operations in their fixed order.
#pragma once

#include <platform/Export.h>
#include <platform/entity/TypeRef.h>

#include <atomic>
#include <cstdint>
#if __has_include( <sys/single_threaded.h> )
#include <sys/single_threaded.h>
#endif

namespace Tessel {

namespace Impl {

// Whether the process surely has one thread only, which glibc tells from its version 2.32 on.
inline bool singleThreaded() noexcept {
#if __has_include( <sys/single_threaded.h> )
   return __libc_single_threaded != 0;
#else
   return false;
#endif
}

} // namespace Impl

// Set while an entity is constructed and not yet on its way down.
inline constexpr std::uint32_t nodeInitialized = 0x20000000;

// A polymorphic, reference-counted object. It starts with one use, owned by the pointer that its
// creation returns, and is destroyed when the last use goes.
//
// Thread: uses may be added and dropped from any thread; everything else is the entity's matter.
class TESSEL_EXPORT Node {
 protected:
   // First, because the destructor has the first two virtual slots.
   virtual ~Node() = default;
   Node() = default;

 public:
   Node( const Node& ) = delete;
   Node& operator=( const Node& ) = delete;

   // Runs when the last use has gone; destroys the entity. From here on nobody may add a use.
   virtual void lastUserGone() noexcept;
   // The entity that publishes this one; null for one that nobody publishes.
   [[nodiscard]] virtual Node* publisher();
   // Where the entity's type is described.
   [[nodiscard]] virtual TypeRef typeData() const;

   // Adds a use. The count is plain while the process has one thread and atomic from its second
   // one on.
   void incUse() noexcept {
      if( Impl::singleThreaded() ) {
         ++useCount_;
      } else {
         // Relaxed: whoever adds a use already has one, which keeps the entity alive.
         std::atomic_ref( useCount_ ).fetch_add( 1, std::memory_order_relaxed );
      }
   }
   // Drops one use; with the last one the entity is gone.
   void decUseImpl() noexcept {
      if( Impl::singleThreaded() ) {
         if( --useCount_ != 0 ) {
            return;
         }
      } else {
         std::atomic_ref count( useCount_ );
         // Acquire: the destruction comes after the work of all other users. Release: this user's
         // work comes before another one's destruction. A sole user needs no decrement, because
         // nobody else is left who could add or drop a use.
         if( count.load( std::memory_order_acquire ) != 1 && // GCOVR_EXCL_BR_LINE: a race
             count.fetch_sub( 1, std::memory_order_acq_rel ) != 1 ) {
            return;
         }
      }
      lastUserGone();
   }
   // The number of uses, which other threads may be changing.
   [[nodiscard]] std::uint32_t useCount() const noexcept {
      // Not std::atomic_ref, which takes nothing const.
      return __atomic_load_n( &useCount_, __ATOMIC_RELAXED );
   }

   // Sets or clears a flag, and leaves the others.
   void nodeFlagSet( std::uint32_t flag, bool value ) noexcept {
      nodeFlags_ = value ? nodeFlags_ | flag : nodeFlags_ & ~flag;
   }
   // Whether the flag is set.
   [[nodiscard]] bool nodeFlag( std::uint32_t flag ) const noexcept {
      return ( nodeFlags_ & flag ) != 0;
   }

 private:
   std::uint32_t useCount_ = 1;
   std::uint32_t nodeFlags_ = 0;
};

} // namespace Tessel
