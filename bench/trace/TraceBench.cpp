// A trace with a string of 20 characters and a bool: off, and as text on /dev/null.
#include <platform/trace/Trace.h>

#include "../Iterations.h"
#include "TraceBench.h"

#include <benchmark/benchmark.h>

namespace {

TRACE_FACILITY( "TraceBench" );

void traceWithLevels( benchmark::State& state, Orl::TraceLevels levels ) {
   Orl::traceLevelsIs( "TraceBench", levels );
   const Tessel::String text = Bench::text;
   const bool flag = true;
   for( auto _ : state ) {
      TRACE( 8, "Call {} async={}", text, flag );
      benchmark::ClobberMemory();
   }
   Orl::traceLevelsIs( "TraceBench", 0 );
}

void disabledTrace( benchmark::State& state ) {
   traceWithLevels( state, 0 );
}

void textTrace( benchmark::State& state ) {
   const Bench::StderrToNull stderrToNull;
   traceWithLevels( state, Orl::allTraceLevels );
}

BENCHMARK( disabledTrace )->Apply( Bench::iterations );
BENCHMARK( textTrace )->Apply( Bench::iterations );

} // namespace

BENCHMARK_MAIN();
