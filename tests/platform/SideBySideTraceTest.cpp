// Trace files of processes of i386, which this test is, and of amd64 in one folder.
#include <platform/trace/Trace.h>

#include "Process.h"
#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace SodrelTest {
namespace {

TRACE_FACILITY( "SideBySideTraceTest" );

const std::string tracedProcesses[]{ AMD64 "/tests/platform/traced-process", TRACED_PROCESS };
const std::string readers[]{ AMD64 "/tools/fennet-read", FENNET_READ };
const std::string numbers =
   "4096 -5 " + std::to_string( std::numeric_limits< std::int64_t >::min() ) + " " +
   std::to_string( std::numeric_limits< std::uint64_t >::max() ) + " true text";

class ProcessesOfTwoArchitectures : public testing::Test {
 protected:
   ProcessesOfTwoArchitectures() {
      const DefaultHandle handle( folder );
      for( int round = 0; round < 2; ++round ) {
         for( const std::string& process : tracedProcesses ) {
            TRACE( 8, "next" );
            EXPECT_EQ(
               run( "FENNET_TRACE=" + folder.path().string() + ",64K " + process + " numbers" )
                  .status,
               0 );
         }
      }
      TRACE( 8, "end" );
   }

   TraceFolder folder;
};

TEST_F( ProcessesOfTwoArchitectures, areReadInOrderOfTime ) {
   EXPECT_EQ( folder.files().size(), 5U );
   EXPECT_EQ(
      folder.texts(),
      ( Texts{ "next", numbers, "next", numbers, "next", numbers, "next", numbers, "end" } ) );
}

TEST_F( ProcessesOfTwoArchitectures, areReadAlikeByBothReaders ) {
   for( const std::string options : { " ", " --json " } ) {
      Texts outputs;
      for( const std::string& reader : readers ) {
         const Outcome outcome = run( reader + options + folder.path().string() );
         EXPECT_EQ( outcome.status, 0 );
         outputs.push_back( outcome.output );
      }
      EXPECT_EQ( outputs[0], outputs[1] );
      for( const Fennet::TimedRecord& record : folder.records() ) {
         EXPECT_NE( outputs[0].find( Fennet::formatTime( record.time ) ), std::string::npos );
      }
   }
}

} // namespace
} // namespace SodrelTest
