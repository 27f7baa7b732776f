// The allocation tracker: how many entities of each type exist, and how many were ever created.
#pragma once

#include <platform/Export.h>
#include <platform/value/String.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <typeinfo>

namespace Orl {

/// The numbers of entities of a type. Exact unless some are created or destroyed at the same time.
struct AllocCounts {
   std::uint64_t live;  ///< allocated and not yet released
   std::uint64_t total; ///< ever allocated
};

/// The allocations of one entity type, from the first one until the process ends.
///
/// Thread: any, also while a thread or the process ends, and in the child after a fork.
class AllocTrackTypeInfo {
 public:
   /// Records one allocation of a type in *tracker, which it creates on first use.
   ///
   /// Throws std::bad_alloc if the tracker cannot be created; nothing is recorded in that case.
   TESSEL_EXPORT static void _trackAllocation(
      AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
      std::size_t alignment );
   /// Records one release.
   TESSEL_EXPORT static void trackDeallocation( AllocTrackTypeInfo* tracker ) noexcept;

 private:
   friend std::optional< AllocCounts > allocCounts( std::string_view typeName );

   explicit AllocTrackTypeInfo( const Tessel::String& typeName ) : typeName_( typeName ) {}
   static AllocTrackTypeInfo* create( AllocTrackTypeInfo** tracker, const std::type_info& type );

   const Tessel::String typeName_;
   // Accessed through std::atomic_ref only: <atomic> is a heavy header.
   alignas( 8 ) std::uint64_t live_ = 0;
   alignas( 8 ) std::uint64_t total_ = 0;
   AllocTrackTypeInfo* older_ = nullptr;
};

/// Returns the counts of the type with this qualified name, for example "Sodrel::Sdbus", or nothing
/// if none was ever allocated. Types with the same name, local to their source files, are added up.
TESSEL_EXPORT std::optional< AllocCounts > allocCounts( std::string_view typeName );

} // namespace Orl
