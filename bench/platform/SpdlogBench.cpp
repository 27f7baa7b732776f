// The same trace through spdlog: disabled, or written as a line with the same fields, one write
// each.
#define SPDLOG_ACTIVE_LEVEL SPDLOG_LEVEL_TRACE
#include <benchmark/benchmark.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <string>

namespace {

void spdlogTrace( benchmark::State& state, spdlog::level::level_enum level ) {
   spdlog::logger logger( "PlatformBench", std::make_shared< spdlog::sinks::stderr_sink_mt >() );
   logger.set_level( level );
   logger.set_pattern(
      "%Y-%m-%dT%H:%M:%S.%fZ %t %n/%l %g:%# %!: %v", spdlog::pattern_time_type::utc );
   const std::string text = "abcdefghij-klmn.unit";
   const bool flag = true;
   for( auto _ : state ) {
      SPDLOG_LOGGER_DEBUG( &logger, "Call {} async={}", text, flag );
      benchmark::ClobberMemory();
   }
}

BENCHMARK_CAPTURE( spdlogTrace, off, spdlog::level::info );
BENCHMARK_CAPTURE( spdlogTrace, text, spdlog::level::trace );

} // namespace
