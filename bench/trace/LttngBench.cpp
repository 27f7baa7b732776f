// The same record by LTTng-UST, in a session that ../platform/lttng-session sets up.
#include "../Iterations.h"
#include "LttngProvider.h"
#include "TraceBench.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

namespace {

void recordLttng( benchmark::State& state ) {
   if( !lttng_ust_tracepoint_enabled( trace_bench, call ) ) {
      state.SkipWithError( "no session enables the trace point" );
      return;
   }
   const std::string text = Bench::text;
   const bool flag = true;
   for( auto _ : state ) {
      lttng_ust_tracepoint( trace_bench, call, text.c_str(), flag );
      benchmark::ClobberMemory();
   }
}

BENCHMARK( recordLttng )->Apply( Bench::iterations );

} // namespace

BENCHMARK_MAIN();
