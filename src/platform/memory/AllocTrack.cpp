// The counts per type and thread, and the list of all types that were ever allocated.
//
// Each thread counts in a table of its own, without atomic read-modify-write. A table outlives its
// thread with its counts and serves a later thread, so that a type's count is always the sum over
// all tables. There is no lock, so that a fork at any moment leaves everything usable in the child.
#include <platform/memory/AllocTrack.h>

#include <platform/memory/PerThread.h>
#include <platform/value/TypeName.h>

#include <algorithm>
#include <bit>
#include <memory>
#include <new>

namespace Orl {

namespace {

using Tessel::Impl::GrowingList;

// A count that one thread at a time writes and every thread may read.
class OwnedCount {
 public:
   void add() noexcept {
      // Release: who reads the new count also sees the counts that came before it.
#if defined( __x86_64__ )
      // One instruction without a lock prefix, which compilers make of no atomic operation. It
      // stores all eight bytes at once, and every store of this processor is a release.
      __asm__( "addq $1, %0" : "+m"( value_ ) : : "cc", "memory" );
#else
      value_.store( value_.load( std::memory_order_relaxed ) + 1, std::memory_order_release );
#endif
   }
   [[nodiscard]] std::uint64_t read() const noexcept {
      return value_.load( std::memory_order_acquire );
   }

 private:
   std::atomic< std::uint64_t > value_ = 0;
};

struct TypeCounts {
   OwnedCount total;
   OwnedCount released;
};

// The counts of one thread; they follow the table in memory. A place is a type's index times
// sizeof( TypeCounts ).
class alignas( 64 ) CountTable {
 public:
   constexpr explicit CountTable( std::uint32_t end ) : end_( end ) {}
   // A table with at least that place, owned by the calling thread; null when there is no memory.
   static CountTable* make( std::uint32_t place ) noexcept {
      const std::uint32_t end = std::max( 1024U, std::bit_ceil( place + 1 ) );
      void* const memory = operator new(
         sizeof( CountTable ) + end, std::align_val_t( alignof( CountTable ) ), std::nothrow );
      if( memory == nullptr ) {
         return nullptr;
      }
      auto* const table = new( memory ) CountTable( end );
      std::uninitialized_value_construct_n( &table->at( 0 ), end / sizeof( TypeCounts ) );
      return table;
   }

   [[nodiscard]] bool has( std::uint32_t place ) const noexcept { return place < end_; }
   TypeCounts& at( std::uint32_t place ) noexcept {
      return *reinterpret_cast< TypeCounts* >( reinterpret_cast< char* >( this + 1 ) + place );
   }

   // Makes the calling thread the owner of a table that was left.
   bool claim() noexcept {
      // Acquire: the counts go on from where the last owner left them.
      return !owned_.load( std::memory_order_relaxed ) &&
             !owned_.exchange( true, std::memory_order_acquire ); // GCOVR_EXCL_BR_LINE: a race
   }
   void leave() noexcept;

 private:
   friend GrowingList< CountTable >;

   const std::uint32_t end_;
   std::atomic< bool > owned_ = true;
   CountTable* next_ = nullptr;
};

constinit GrowingList< AllocTrackTypeInfo > trackers;
constinit std::atomic< std::uint32_t > nextPlace = 0;
constinit GrowingList< CountTable > tables;
// Stands for the table that a thread does not have.
constinit CountTable noTable( 0 );
[[gnu::tls_model( "initial-exec" )]] constinit thread_local CountTable* ownTable = &noTable;

void CountTable::leave() noexcept {
   if( ownTable == this ) {
      ownTable = &noTable;
   }
   owned_.store( false, std::memory_order_release );
}

// Gives the calling thread a table that has the place; false when there is no memory.
bool takeTable( std::uint32_t place ) noexcept {
   CountTable* table = tables.first();
   while( table != nullptr && !( table->has( place ) && table->claim() ) ) {
      table = GrowingList< CountTable >::next( table );
   }
   if( table == nullptr ) {
      table = CountTable::make( place );
      if( table == nullptr ) {
         return false;
      }
      tables.add( table );
   }
   if( !Tessel::Impl::atThreadEnd( table ) ) {
      table->leave();
      return false;
   }
   // One that has become too small stays behind with its counts.
   if( ownTable != &noTable ) {
      ownTable->leave();
   }
   ownTable = table;
   return true;
}

std::uint64_t sum(
   std::uint32_t place, const std::atomic< std::uint64_t >& shared,
   OwnedCount TypeCounts::*count ) {
   std::uint64_t result = shared.load( std::memory_order_acquire );
   for( CountTable* table = tables.first(); table != nullptr;
        table = GrowingList< CountTable >::next( table ) ) {
      if( table->has( place ) ) {
         result += ( table->at( place ).*count ).read();
      }
   }
   return result;
}

} // namespace

AllocTrackTypeInfo::AllocTrackTypeInfo(
   const std::type_info& type, std::size_t size, std::size_t alignment )
   : typeName_( Tessel::typeName( type ) ),
     size_( size ),
     alignment_( alignment ),
     place_( nextPlace.fetch_add( sizeof( TypeCounts ), std::memory_order_relaxed ) ) {}

AllocTrackTypeInfo* AllocTrackTypeInfo::create(
   AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
   std::size_t alignment ) {
   std::unique_ptr< AllocTrackTypeInfo > made( new AllocTrackTypeInfo( type, size, alignment ) );
   AllocTrackTypeInfo* known = nullptr;
   // Release and acquire: who sees the pointer sees the tracker whole.
   if( std::atomic_ref( *tracker )
          .compare_exchange_strong(
             known, made.get(), std::memory_order_acq_rel, std::memory_order_acquire ) ) {
      known = made.release();
      trackers.add( known );
   }
   return known;
}

void AllocTrackTypeInfo::_trackAllocation(
   AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
   std::size_t alignment ) {
   // Acquire: the other side of create.
   const AllocTrackTypeInfo* const info =
      std::atomic_ref( *tracker ).load( std::memory_order_acquire );
   if( info != nullptr && ownTable->has( info->place_ ) ) [[likely]] {
      ownTable->at( info->place_ ).total.add();
   } else {
      trackSlow( tracker, type, size, alignment );
   }
}

[[gnu::noinline]] void AllocTrackTypeInfo::trackSlow(
   AllocTrackTypeInfo** tracker, const std::type_info& type, std::size_t size,
   std::size_t alignment ) {
   AllocTrackTypeInfo* info = std::atomic_ref( *tracker ).load( std::memory_order_acquire );
   if( info == nullptr ) {
      info = create( tracker, type, size, alignment );
   }
   if( ownTable->has( info->place_ ) || takeTable( info->place_ ) ) {
      ownTable->at( info->place_ ).total.add();
   } else {
      info->sharedTotal_.fetch_add( 1, std::memory_order_release );
   }
}

void AllocTrackTypeInfo::trackDeallocation( AllocTrackTypeInfo* tracker ) noexcept {
   if( ownTable->has( tracker->place_ ) ) [[likely]] {
      ownTable->at( tracker->place_ ).released.add();
   } else {
      tracker->releaseSlow();
   }
}

[[gnu::noinline]] void AllocTrackTypeInfo::releaseSlow() noexcept {
   if( takeTable( place_ ) ) {
      ownTable->at( place_ ).released.add();
   } else {
      sharedReleased_.fetch_add( 1, std::memory_order_release );
   }
}

std::uint64_t AllocTrackTypeInfo::live() const noexcept {
   // The releases first: with each of them the allocation before it is visible, so that the
   // difference never falls below zero.
   const std::uint64_t released = sum( place_, sharedReleased_, &TypeCounts::released );
   return total() - released;
}

std::uint64_t AllocTrackTypeInfo::total() const noexcept {
   return sum( place_, sharedTotal_, &TypeCounts::total );
}

std::optional< AllocCounts > allocCounts( std::string_view typeName ) {
   std::optional< AllocCounts > counts;
   for( const AllocTrackTypeInfo* info = trackers.first(); info != nullptr;
        info = GrowingList< AllocTrackTypeInfo >::next( info ) ) {
      // Several when the types of one name are local to their files.
      if( info->typeName() == typeName ) {
         if( !counts ) {
            counts.emplace();
         }
         counts->live += info->live();
         counts->total += info->total();
      }
   }
   return counts;
}

} // namespace Orl
