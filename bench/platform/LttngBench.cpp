// The same trace as a record: in the ring buffer, and by LTTng-UST in a session started by
// lttng-session.
#include <platform/trace/Trace.h>
#include <platform/value/String.h>

#include "LttngProvider.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

TRACE_FACILITY( "LttngBench" );

constexpr std::uint32_t ringSize = 1 << 20;

void recordTrace( benchmark::State& state ) {
   std::string folder = ( std::filesystem::temp_directory_path() / "bench-XXXXXX" ).string();
   if( !mkdtemp( folder.data() ) ) {
      state.SkipWithError( "no temporary folder" );
      return;
   }
   {
      Fennet::TraceHandle handle( folder, ringSize, true );
      Fennet::defaultFennetHandle = &handle;
      const Tessel::String text = "abcdefghij-klmn.unit";
      const bool flag = true;
      for( auto _ : state ) {
         TRACE( 8, "Call {} async={}", text, flag );
         benchmark::ClobberMemory();
      }
      Fennet::defaultFennetHandle = nullptr;
   }
   std::filesystem::remove_all( folder );
}

void recordLttng( benchmark::State& state ) {
   if( !lttng_ust_tracepoint_enabled( platform_bench, call ) ) {
      state.SkipWithError( "no session enables the trace point" );
      return;
   }
   const std::string text = "abcdefghij-klmn.unit";
   const bool flag = true;
   for( auto _ : state ) {
      lttng_ust_tracepoint( platform_bench, call, text.c_str(), flag );
      benchmark::ClobberMemory();
   }
}

BENCHMARK( recordTrace );
BENCHMARK( recordLttng );

} // namespace
