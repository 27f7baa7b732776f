// The same record by the ring-buffer trace and by what one would write by hand.
#include <platform/trace/Trace.h>

#include "../Iterations.h"
#include "TraceBench.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#if defined( __x86_64__ )
#include <x86intrin.h>
#endif

namespace {

TRACE_FACILITY( "RecordBench" );

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
      const Tessel::String text = Bench::text;
      const bool flag = true;
      for( auto _ : state ) {
         TRACE( 8, "Call {} async={}", text, flag );
         benchmark::ClobberMemory();
      }
      Fennet::defaultFennetHandle = nullptr;
   }
   std::filesystem::remove_all( folder );
}

// What one would write by hand for one thread, one format and memory that dies with the process.
class HandWrittenRing {
 public:
   [[gnu::noinline]] void write( std::uint32_t id, std::string_view text, bool flag ) {
      const std::size_t size = ( sizeof( Head ) + text.size() + 1 + 7 ) & ~std::size_t{ 7 };
      if( position_ + size > ringSize ) {
         position_ = 0;
      }
      char* const start = memory_.get() + position_;
      const Head head{ static_cast< std::uint32_t >( size ), id, ticks(),
                       static_cast< std::uint16_t >( text.size() ) };
      std::memcpy( start, &head, sizeof head );
      std::memcpy( start + sizeof head, text.data(), text.size() );
      start[sizeof head + text.size()] = static_cast< char >( flag );
      position_ += size;
      end_.store( position_, std::memory_order_release );
   }

 private:
   struct Head {
      std::uint32_t size;
      std::uint32_t id;
      std::uint64_t ticks;
      std::uint16_t length;
   };

   static std::uint64_t ticks() {
#if defined( __x86_64__ )
      return __rdtsc();
#else
      return static_cast< std::uint64_t >( Fennet::Impl::nanoseconds( CLOCK_MONOTONIC ) );
#endif
   }

   std::unique_ptr< char[] > memory_ = std::make_unique< char[] >( ringSize );
   std::size_t position_ = 0;
   std::atomic< std::size_t > end_ = 0;
};

void recordByHand( benchmark::State& state ) {
   HandWrittenRing ring;
   const Tessel::String text = Bench::text;
   const bool flag = true;
   for( auto _ : state ) {
      ring.write( 1, text, flag );
      benchmark::ClobberMemory();
   }
}

BENCHMARK( recordTrace )->Apply( Bench::iterations );
BENCHMARK( recordByHand )->Apply( Bench::iterations );

} // namespace
