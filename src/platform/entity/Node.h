// The base of every entity: use count, flags and the virtual operations in their fixed order.
#pragma once

#include <platform/Export.h>

#include <cstdint>
#include <sys/single_threaded.h>

namespace Tessel {

struct ModuleInspectData;

/// A reference to one type's description. Borrows the module's record, so it is valid as long as
/// the module is loaded.
struct TypeRef {
   const ModuleInspectData* module = nullptr; ///< null for nodeType
   std::uint32_t index = 0;                   ///< among the module's types

   /// Returns whether both refer to the same type.
   friend constexpr bool operator==( const TypeRef& left, const TypeRef& right ) = default;
};

/// The type of Tessel::Node, the base of all entities, which no module's record describes.
inline constexpr TypeRef nodeType;

/// The description of class T, defined in T's module: see <platform/types/Module.h>.
template< typename T >
struct TypeTable;

/// The node flag that is set once an entity is constructed, until its destruction begins.
inline constexpr std::uint32_t nodeInitialized = 0x20000000;

/// A polymorphic, reference-counted object. It starts with one use, owned by the pointer that its
/// creation returns, and is destroyed when the last use is dropped.
///
/// Thread: uses may be added and dropped from any thread; everything else is up to the class.
class TESSEL_EXPORT Node {
 protected:
   // First, because the destructor has the first two virtual slots.
   virtual ~Node() = default;
   Node() = default;

 public:
   Node( const Node& ) = delete;
   Node& operator=( const Node& ) = delete;

   /// Runs when the last use has been dropped; destroys the entity. No more uses may be added.
   virtual void lastUserGone() noexcept;
   /// Returns the entity that publishes this one, borrowed; null if there is none.
   [[nodiscard]] virtual Node* publisher();
   /// Returns a reference to the description of the entity's type.
   [[nodiscard]] virtual TypeRef typeData() const;

   /// Adds a use. The caller must already have one, which keeps the entity alive.
   void incUse() noexcept { added( 1 ); }
   /// Drops one use; the last drop destroys the entity.
   void decUseImpl() noexcept {
      if( added( -1U ) == 0 ) {
         lastUserGone();
      }
   }
   /// Returns the number of uses, which other threads may be changing.
   [[nodiscard]] std::uint32_t useCount() const noexcept {
      return __atomic_load_n( &useCount_, __ATOMIC_RELAXED );
   }

   /// Sets or clears a flag and leaves the others unchanged.
   void nodeFlagSet( std::uint32_t flag, bool value ) noexcept {
      nodeFlags_ = value ? nodeFlags_ | flag : nodeFlags_ & ~flag;
   }
   /// Returns whether the flag is set.
   [[nodiscard]] bool nodeFlag( std::uint32_t flag ) const noexcept {
      return ( nodeFlags_ & flag ) != 0;
   }

 private:
   // Adds to the use count and returns the result; not atomically while the process has one
   // thread. Uses builtins because <atomic> is a heavy header.
   std::uint32_t added( std::uint32_t by ) noexcept {
      if( __libc_single_threaded ) {
         return useCount_ += by;
      }
      // Acquire and release: the work of all users happens before the last one destroys the entity.
      return __atomic_add_fetch( &useCount_, by, __ATOMIC_ACQ_REL );
   }

   std::uint32_t useCount_ = 1;
   std::uint32_t nodeFlags_ = 0;
};

} // namespace Tessel
