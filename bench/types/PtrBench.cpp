// The counted pointer next to bare counts.
#include <platform/entity/Entity.h>

#include "../Iterations.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <sys/single_threaded.h>
#include <thread>
#include <type_traits>

namespace {

class Entity : public Tessel::Node {
   TESSEL_ENTITY( Entity )
};
Orl::AllocTrackTypeInfo* Entity::memAllocationTracker_ = nullptr;
Tessel::TypeRef Entity::typeData() const {
   return Node::typeData();
}

class BesideAThread {
 public:
   ~BesideAThread() { end_.set_value(); }

 private:
   std::promise< void > end_;
   std::jthread thread_{ [ended = end_.get_future()] { ended.wait(); } };
};

// Entities as far as the counted pointer goes, with the count that one would write by hand.
class PlainCounted {
 public:
   virtual ~PlainCounted() = default;
   void incUse() noexcept { ++useCount_; }
   void decUseImpl() noexcept {
      if( --useCount_ == 0 ) {
         delete this;
      }
   }

 private:
   std::uint32_t useCount_ = 1;
};

class AtomicCounted {
 public:
   virtual ~AtomicCounted() = default;
   void incUse() noexcept { useCount_.fetch_add( 1, std::memory_order_relaxed ); }
   void decUseImpl() noexcept {
      if( useCount_.fetch_sub( 1, std::memory_order_acq_rel ) == 1 ) {
         delete this;
      }
   }

 private:
   std::atomic< std::uint32_t > useCount_ = 1;
};

template< typename T >
Tessel::Ptr< T > made() {
   if constexpr( std::is_same_v< T, Entity > ) {
      return Tessel::ptrIsImpl< Entity >();
   } else {
      return Tessel::Ptr< T >::adopt( new T );
   }
}

template< typename T >
void copyAndDrop( benchmark::State& state ) {
   const auto pointer = made< T >();
   for( auto _ : state ) {
      Tessel::Ptr< T > copy = pointer;
      benchmark::DoNotOptimize( copy );
   }
}

template< typename T >
void copyAndDropAlone( benchmark::State& state ) {
   if( __libc_single_threaded == 0 ) {
      state.SkipWithError( "the process has had a second thread; run without interleaving" );
      return;
   }
   copyAndDrop< T >( state );
}

template< typename T >
void copyAndDropBesideAThread( benchmark::State& state ) {
   const BesideAThread thread;
   copyAndDrop< T >( state );
}

BENCHMARK( copyAndDropAlone< PlainCounted > )
   ->Name( "copyAndDrop/plainCount" )
   ->Apply( Bench::iterations );
BENCHMARK( copyAndDropAlone< Entity > )->Name( "copyAndDrop/entity" )->Apply( Bench::iterations );
BENCHMARK( copyAndDropBesideAThread< AtomicCounted > )
   ->Name( "copyAndDropBesideAThread/atomicCount" )
   ->Apply( Bench::iterations );
BENCHMARK( copyAndDropBesideAThread< Entity > )
   ->Name( "copyAndDropBesideAThread/entity" )
   ->Apply( Bench::iterations );

} // namespace
