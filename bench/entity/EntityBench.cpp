// Creation and drop of a 64-byte entity, next to other allocators in the same program.
#include <platform/entity/Entity.h>

#include "../Iterations.h"

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <future>
#include <memory>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

// Classes of external linkage, so that the compiler cannot know the only class of an entity.
namespace Bench {

// An entity's base as far as creation and drop go: virtual destructor, use count, flags.
class Counted {
 public:
   virtual ~Counted() = default;
   void drop() noexcept {
      // The only user needs no atomic read-modify-write: nobody else can add a use.
      if( uses_.load( std::memory_order_acquire ) == 1 ||
          uses_.fetch_sub( 1, std::memory_order_acq_rel ) == 1 ) {
         delete this;
      }
   }

 private:
   std::atomic< std::uint32_t > uses_ = 1;
   std::uint32_t flags_ = 0;
};

// The memory contract of an entity, and nothing else.
class Bare : public Counted {
 public:
   Bare() {}
   static void* operator new( std::size_t size ) {
      return Tessel::Impl::entityAlloc< Bare >( size );
   }
   static void operator delete( void* block ) noexcept {
      Tessel::Impl::entityFree< Bare >( block );
   }
   static Orl::AllocTrackTypeInfo* memAllocationTracker_;

 private:
   std::array< std::uint64_t, 6 > payload_;
};
Orl::AllocTrackTypeInfo* Bare::memAllocationTracker_ = nullptr;
static_assert( sizeof( Bare ) == 64 );

class Entity : public Tessel::Node {
   TESSEL_ENTITY( Entity )

 private:
   Entity() {} // leaves the payload as it is, as Bare does
   std::array< std::uint64_t, 6 > payload_;
};
Orl::AllocTrackTypeInfo* Entity::memAllocationTracker_ = nullptr;
Tessel::TypeRef Entity::typeData() const {
   return Node::typeData();
}
static_assert( sizeof( Entity ) == 64 );

} // namespace Bench

namespace {

constexpr std::size_t entityBytes = 64;

// Another thread that exists and sleeps while the benchmark runs.
class SleepingThread {
 public:
   ~SleepingThread() { wake_.set_value(); }

 private:
   std::promise< void > wake_;
   std::jthread thread_{ [woken = wake_.get_future()] { woken.wait(); } };
};

// Loaded at run time and privately, since linking it would replace malloc for the whole program.
struct Mimalloc {
   void* ( *malloc )( std::size_t ) = nullptr;
   void ( *free )( void* ) = nullptr;

   Mimalloc() {
      if( void* const library = dlopen( "libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL ) ) {
         malloc = reinterpret_cast< decltype( malloc ) >( dlsym( library, "mi_malloc" ) );
         free = reinterpret_cast< decltype( free ) >( dlsym( library, "mi_free" ) );
      }
   }
};

struct EntityWay {
   using Handle = Tessel::Node*;
   Handle create() { return Tessel::ptrIsImpl< Bench::Entity >().release(); }
   void drop( Handle entity ) { const auto last = Tessel::Ptr< Tessel::Node >::adopt( entity ); }
};

struct BareEntityWay {
   using Handle = Bench::Counted*;
   Handle create() { return new Bench::Bare; }
   void drop( Handle entity ) { entity->drop(); }
};

struct NewDeleteWay {
   using Handle = void*;
   Handle create() { return ::operator new( entityBytes ); }
   void drop( Handle block ) { ::operator delete( block ); }
};

struct MakeSharedWay {
   using Handle = std::shared_ptr< std::array< std::uint64_t, 6 > >;
   Handle create() { return std::make_shared_for_overwrite< Handle::element_type >(); }
   void drop( Handle& pointer ) { pointer.reset(); }
};

struct MimallocWay {
   using Handle = void*;
   Handle create() { return library.malloc( entityBytes ); }
   void drop( Handle block ) { library.free( block ); }
   Mimalloc library;
};

template< typename Way >
bool isMissing( benchmark::State& state, [[maybe_unused]] const Way& way ) {
   if constexpr( std::is_same_v< Way, MimallocWay > ) {
      if( way.library.free == nullptr ) {
         state.SkipWithError( "libmimalloc.so.2 is not installed (package libmimalloc2.0)" );
         return true;
      }
   }
   return false;
}

template< typename Way >
void createAndDrop( benchmark::State& state ) {
   Way way;
   if( isMissing( state, way ) ) {
      return;
   }
   for( auto _ : state ) {
      typename Way::Handle made = way.create();
      benchmark::DoNotOptimize( made );
      way.drop( made );
   }
}

template< typename Way >
void createAndDropBesideAThread( benchmark::State& state ) {
   const SleepingThread thread;
   createAndDrop< Way >( state );
}

// All of many at once, dropped in the order of their creation; the time is for all of them.
template< typename Way >
void createManyThenDrop( benchmark::State& state ) {
   Way way;
   if( isMissing( state, way ) ) {
      return;
   }
   std::vector< typename Way::Handle > made( static_cast< std::size_t >( state.range( 0 ) ) );
   for( auto _ : state ) {
      for( auto& handle : made ) {
         handle = way.create();
      }
      benchmark::ClobberMemory();
      for( auto& handle : made ) {
         way.drop( handle );
      }
   }
   state.SetItemsProcessed( state.iterations() * state.range( 0 ) );
}

// What counting instructions takes off.
void emptyLoop( benchmark::State& state ) {
   for( auto _ : state ) {
      benchmark::ClobberMemory();
   }
}

BENCHMARK( emptyLoop )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDrop, EntityWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDrop, BareEntityWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDrop, NewDeleteWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDrop, MakeSharedWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDrop, MimallocWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDropBesideAThread, EntityWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDropBesideAThread, BareEntityWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDropBesideAThread, NewDeleteWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDropBesideAThread, MakeSharedWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createAndDropBesideAThread, MimallocWay )->Apply( Bench::iterations );
BENCHMARK_TEMPLATE( createManyThenDrop, EntityWay )->Arg( 1'000 )->Arg( 100'000 );
BENCHMARK_TEMPLATE( createManyThenDrop, NewDeleteWay )->Arg( 1'000 )->Arg( 100'000 );
BENCHMARK_TEMPLATE( createManyThenDrop, MakeSharedWay )->Arg( 1'000 )->Arg( 100'000 );
BENCHMARK_TEMPLATE( createManyThenDrop, MimallocWay )->Arg( 1'000 )->Arg( 100'000 );

} // namespace

BENCHMARK_MAIN();
