// Ring-buffer traces without a time stamp counter: all tests of this program run so.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

namespace {

TRACE_FACILITY( "MonotonicTraceTest" );

TEST( ARingTraceWithoutACounter, hasNanosecondsForTicks ) {
   const Fennet::TraceFolder folder;
   const Fennet::DefaultHandle handle( folder );
   const std::int64_t before = Fennet::Impl::nanoseconds( CLOCK_MONOTONIC );
   TRACE( 8, "text" );
   const std::int64_t after = Fennet::Impl::nanoseconds( CLOCK_MONOTONIC );

   std::ifstream file( folder.files().at( 0 ), std::ios::binary );
   Fennet::RecordHead head{};
   file.seekg( folder.header()->headerSize );
   file.read( reinterpret_cast< char* >( &head ), sizeof head );
   EXPECT_GE( head.ticks, static_cast< std::uint64_t >( before ) );
   EXPECT_LE( head.ticks, static_cast< std::uint64_t >( after ) );
}

} // namespace
