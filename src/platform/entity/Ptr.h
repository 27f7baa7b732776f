// The counted pointer to an entity.
#pragma once

#include <concepts>
#include <cstddef>
#include <utility>

namespace Tessel {

/// Owns one use of an entity, or is null. Copying adds a use; destruction drops it.
///
/// Thread: as a plain pointer; several threads may have pointers to the same entity.
template< typename T >
class Ptr {
 public:
   /// Creates a null pointer.
   Ptr( std::nullptr_t = nullptr ) {}
   /// Adds a use.
   explicit Ptr( T* entity ) : entity_( entity ) {
      if( entity_ ) {
         entity_->incUse();
      }
   }
   /// Adds a use.
   Ptr( const Ptr& other ) : Ptr( other.entity_ ) {}
   /// Takes over the use; the other pointer becomes null.
   Ptr( Ptr&& other ) noexcept : entity_( other.release() ) {}
   /// Adds a use, from a pointer to a derived class.
   template< std::derived_from< T > U >
   Ptr( const Ptr< U >& other ) : Ptr( other.get() ) {}
   /// Takes over the use, from a pointer to a derived class.
   template< std::derived_from< T > U >
   Ptr( Ptr< U >&& other ) noexcept : entity_( other.release() ) {}
   /// Takes the other's use, then drops the previous one.
   Ptr& operator=( Ptr other ) noexcept {
      std::swap( entity_, other.entity_ );
      return *this;
   }
   ~Ptr() {
      if( entity_ ) {
         entity_->decUseImpl();
      }
   }

   /// Consumes a use that the caller owns.
   [[nodiscard]] static Ptr adopt( T* entity ) noexcept {
      Ptr pointer;
      pointer.entity_ = entity;
      return pointer;
   }
   /// Releases ownership of the use to the caller and becomes null.
   [[nodiscard]] T* release() noexcept { return std::exchange( entity_, nullptr ); }

   /// Returns the entity, borrowed; null for a null pointer.
   [[nodiscard]] T* get() const noexcept { return entity_; }
   /// Accesses the entity, borrowed. The pointer must not be null.
   T* operator->() const noexcept { return entity_; }
   /// As operator->.
   T& operator*() const noexcept { return *entity_; }
   /// Returns whether the pointer is not null.
   explicit operator bool() const noexcept { return entity_ != nullptr; }
   /// Returns whether both point to the same entity, or are null.
   friend bool operator==( const Ptr& left, const Ptr& right ) = default;

 private:
   T* entity_ = nullptr;
};

} // namespace Tessel
