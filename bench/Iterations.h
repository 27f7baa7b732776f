// Runs of a fixed number of iterations, for counting instructions.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace Bench {

// Gives a benchmark as many iterations as the environment says, so that the instructions of one are
// those by which two runs differ.
inline void iterations( benchmark::internal::Benchmark* benchmark ) {
   if( const char* const count = std::getenv( "BENCH_ITERATIONS" ) ) {
      benchmark->Iterations( std::atoll( count ) );
   }
}

} // namespace Bench
