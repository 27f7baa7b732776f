// The allocation tracker: how many entities of each type live, and how many ever did.
#pragma once

#include <platform/Export.h>
#include <platform/value/String.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <typeinfo>

namespace Tessel::Impl {

template< typename T >
class GrowingList;

} // namespace Tessel::Impl

namespace Orl {

// How many entities of a type there are.
struct AllocCounts {
   std::uint64_t live;  // allocated and not yet released
   std::uint64_t total; // ever allocated
};

// The allocations of one entity type.
//
// Lives from the type's first allocation until the process ends.
// Thread: every operation may be called from any thread, also while a thread or the process ends.
class AllocTrackTypeInfo {
 public:
   // Records one allocation of a type in *tracker, which is created on first use.
   //
   // Throws std::bad_alloc when the tracker cannot be created; then nothing is recorded.
   TESSEL_EXPORT static void _trackAllocation(
      AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
      std::size_t alignment );

   // Records one release.
   TESSEL_EXPORT static void trackDeallocation( AllocTrackTypeInfo* tracker ) noexcept;

   // The counts are exact when the allocations and releases to be counted happened before the
   // call; those that run at the same time may or may not be included.
   TESSEL_EXPORT std::uint64_t live() const noexcept;
   TESSEL_EXPORT std::uint64_t total() const noexcept;

   // The type's qualified name, for example "Sodrel::JobRemovedMonitor::CallbackData".
   std::string_view typeName() const noexcept { return typeName_; }
   // Of one entity, in bytes.
   std::size_t size() const noexcept { return size_; }
   // Of an entity's address, in bytes.
   std::size_t alignment() const noexcept { return alignment_; }

 private:
   friend Tessel::Impl::GrowingList< AllocTrackTypeInfo >;

   AllocTrackTypeInfo( const std::type_info& type, std::size_t size, std::size_t alignment );

   static void trackSlow(
      AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
      std::size_t alignment );
   static AllocTrackTypeInfo* create(
      AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
      std::size_t alignment );
   void releaseSlow() noexcept;

   const Tessel::String typeName_;
   const std::size_t size_;
   const std::size_t alignment_;
   // Where the threads' tables of counts have this type.
   const std::uint32_t place_;
   // The counts of threads that have no table, for want of memory.
   std::atomic< std::uint64_t > sharedTotal_ = 0;
   std::atomic< std::uint64_t > sharedReleased_ = 0;
   AllocTrackTypeInfo* next_ = nullptr;
};

// Returns the counts of the type with this qualified name, or nothing when none was ever allocated.
TESSEL_EXPORT std::optional< AllocCounts > allocCounts( std::string_view typeName );

} // namespace Orl
