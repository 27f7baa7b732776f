// The counts of each type, and the list of all types that have ever been allocated.
#include <platform/memory/AllocTrack.h>

#include <platform/value/Exception.h>

#include <atomic>
#include <memory>

namespace Orl {

namespace {

// The head of the list of all trackers, which are never removed, so that it needs no lock.
constinit std::atomic< AllocTrackTypeInfo* > newest = nullptr;

} // namespace

AllocTrackTypeInfo*
AllocTrackTypeInfo::create( AllocTrackTypeInfo** tracker, const std::type_info& type ) {
   std::unique_ptr< AllocTrackTypeInfo > made( new AllocTrackTypeInfo( Tessel::typeName( type ) ) );
   AllocTrackTypeInfo* info = nullptr;
   // If another thread was faster, its tracker is used.
   if( std::atomic_ref( *tracker ).compare_exchange_strong( info, made.get() ) ) {
      info = made.release();
      while( !newest.compare_exchange_weak( info->older_, info ) ) { // GCOVR_EXCL_BR_LINE: race
      }
   }
   return info;
}

void AllocTrackTypeInfo::_trackAllocation(
   AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t, std::size_t ) {
   AllocTrackTypeInfo* info = std::atomic_ref( *tracker ).load();
   if( !info ) {
      info = create( tracker, type );
   }
   std::atomic_ref( info->total_ ).fetch_add( 1, std::memory_order_relaxed );
   std::atomic_ref( info->live_ ).fetch_add( 1, std::memory_order_relaxed );
}

void AllocTrackTypeInfo::trackDeallocation( AllocTrackTypeInfo* tracker ) noexcept {
   std::atomic_ref( tracker->live_ ).fetch_sub( 1, std::memory_order_relaxed );
}

std::optional< AllocCounts > allocCounts( std::string_view typeName ) {
   std::optional< AllocCounts > counts;
   for( AllocTrackTypeInfo* info = newest; info; info = info->older_ ) {
      if( info->typeName_ == typeName ) {
         counts = counts.value_or( AllocCounts{} );
         counts->live += std::atomic_ref( info->live_ ).load();
         counts->total += std::atomic_ref( info->total_ ).load();
      }
   }
   return counts;
}

} // namespace Orl
