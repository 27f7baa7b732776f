// Creation of entities: what an entity class declares, and the only way to create an entity.
#pragma once

#include <platform/entity/Node.h>
#include <platform/entity/Ptr.h>
#include <platform/memory/AllocTrack.h>
#include <platform/memory/Slab.h>

#include <cstddef>
#include <new>
#include <typeinfo>
#include <utility>

namespace Tessel {

/// Creates an entity and returns the pointer that owns its only use.
///
/// Throws std::bad_alloc and what the constructor throws; no entity or memory is left in that case.
template< typename T, typename... Args >
[[nodiscard]] Ptr< T > ptrIsImpl( Args&&... args ) {
   Ptr< T > entity = Ptr< T >::adopt( new T( std::forward< Args >( args )... ) );
   entity->nodeFlagSet( nodeInitialized, true );
   return entity;
}

namespace Impl {

// Records the release, then frees the block if there is one.
template< typename T >
void entityFree( void* block ) noexcept {
   // Loaded atomically, because another thread may be setting it; by a builtin, because
   // std::atomic_ref's header is heavy.
   Orl::AllocTrackTypeInfo::trackDeallocation(
      __atomic_load_n( &T::memAllocationTracker_, __ATOMIC_ACQUIRE ) );
   if( block ) {
      slabFree( block, typeid( T ) );
   }
}

// Records the allocation, then allocates the block. Throws std::bad_alloc.
template< typename T >
void* entityAlloc( std::size_t size ) {
   static_assert( alignof( T ) <= slabAlignment, "slab blocks are not aligned that strictly" );
   Orl::AllocTrackTypeInfo::_trackAllocation(
      &T::memAllocationTracker_, typeid( T ), size, alignof( T ) );
   void* const block = slabAlloc( size );
   if( !block ) {
      entityFree< T >( nullptr );
      throw std::bad_alloc();
   }
   return block;
}

} // namespace Impl

} // namespace Tessel

/// Must come first in an entity class: the class's allocation tracker, its type data, and memory
/// that only ptrIsImpl can allocate. Operators new and delete belong to the class, so the language
/// itself releases everything when a constructor throws.
///
/// The class's source file defines memAllocationTracker_ (null) and typeData(). A class that
/// derives from an entity class but omits the macro is tracked and described as its base.
#define TESSEL_ENTITY( Class )                                                                     \
 public:                                                                                           \
   static ::Orl::AllocTrackTypeInfo* memAllocationTracker_;                                        \
   [[nodiscard]] ::Tessel::TypeRef typeData() const override;                                      \
                                                                                                   \
 protected:                                                                                        \
   template< typename T, typename... Args >                                                        \
   friend ::Tessel::Ptr< T > Tessel::ptrIsImpl( Args&&... args );                                  \
   template< typename T >                                                                          \
   friend struct ::Tessel::TypeTable;                                                              \
   static void* operator new( std::size_t size ) {                                                 \
      return ::Tessel::Impl::entityAlloc< Class >( size );                                         \
   }                                                                                               \
   static void operator delete( void* block ) noexcept {                                           \
      ::Tessel::Impl::entityFree< Class >( block );                                                \
   }                                                                                               \
                                                                                                   \
 private:
