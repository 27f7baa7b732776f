// The same trace through spdlog: off, and as a text of the same fields on /dev/null.
#define SPDLOG_ACTIVE_LEVEL SPDLOG_LEVEL_TRACE
#include "../Iterations.h"
#include "TraceBench.h"

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <string>

namespace {

template< typename Sink, typename... Args >
void log( benchmark::State& state, spdlog::level::level_enum level, Args... sinkArgs ) {
   spdlog::logger logger( "TraceBench", std::make_shared< Sink >( sinkArgs... ) );
   logger.set_level( level );
   logger.set_pattern(
      "%Y-%m-%dT%H:%M:%S.%fZ %t %n/%l %g:%# %!: %v", spdlog::pattern_time_type::utc );
   const std::string text = Bench::text;
   const bool flag = true;
   for( auto _ : state ) {
      SPDLOG_LOGGER_DEBUG( &logger, "Call {} async={}", text, flag );
      benchmark::ClobberMemory();
   }
}

void disabledSpdlog( benchmark::State& state ) {
   log< spdlog::sinks::stderr_sink_mt >( state, spdlog::level::info );
}

// One write for each line, as the text trace.
void textSpdlog( benchmark::State& state ) {
   const Bench::StderrToNull stderrToNull;
   log< spdlog::sinks::stderr_sink_mt >( state, spdlog::level::trace );
}

// Lines gathered in a buffer, which a killed process loses.
void bufferedTextSpdlog( benchmark::State& state ) {
   log< spdlog::sinks::basic_file_sink_mt >( state, spdlog::level::trace, "/dev/null" );
}

BENCHMARK( disabledSpdlog )->Apply( Bench::iterations );
BENCHMARK( textSpdlog )->Apply( Bench::iterations );
BENCHMARK( bufferedTextSpdlog )->Apply( Bench::iterations );

} // namespace
