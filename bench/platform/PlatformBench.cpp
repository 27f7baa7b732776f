// Creating and dropping an entity, and traces that are disabled or written as text.
#include <platform/entity/Entity.h>
#include <platform/trace/Trace.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <memory>

namespace {

TRACE_FACILITY( "PlatformBench" );

using Payload = std::array< std::uint64_t, 6 >;

class Entity : public Tessel::Node {
   TESSEL_ENTITY( Entity )

 private:
   Entity() {} // leaves the payload uninitialised, as make_shared_for_overwrite does
   Payload payload_;
};
Orl::AllocTrackTypeInfo* Entity::memAllocationTracker_ = nullptr;
Tessel::TypeRef Entity::typeData() const {
   return Node::typeData();
}

void createEntity( benchmark::State& state ) {
   for( auto _ : state ) {
      benchmark::DoNotOptimize( Tessel::ptrIsImpl< Entity >() );
   }
}

void createShared( benchmark::State& state ) {
   for( auto _ : state ) {
      benchmark::DoNotOptimize( std::make_shared_for_overwrite< Payload >() );
   }
}

void trace( benchmark::State& state, Orl::TraceLevels levels ) {
   traceFacility.levelsIs( levels );
   const Tessel::String text = "abcdefghij-klmn.unit";
   const bool flag = true;
   for( auto _ : state ) {
      TRACE( 8, "Call {} async={}", text, flag );
      benchmark::ClobberMemory();
   }
   traceFacility.levelsIs( 0 );
}

BENCHMARK( createEntity );
BENCHMARK( createShared );
BENCHMARK_CAPTURE( trace, off, 0 );
BENCHMARK_CAPTURE( trace, text, Orl::allTraceLevels );

} // namespace
