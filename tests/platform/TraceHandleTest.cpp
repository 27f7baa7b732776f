// The handles of ring-buffer traces, and the operations that a trace point consists of.
#include <platform/trace/MsgDesc.h>
#include <platform/trace/RingBuf.h>
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using Fennet::DefaultHandle;
using Fennet::TraceFolder;
using Texts = std::vector< std::string >;

TRACE_FACILITY( "TraceHandleTest" );

// One trace point for many calls.
void traceNumber( int number ) {
   TRACE( 8, "number {}", number );
}

TEST( AHandleOfOneThread, hasOneFile ) {
   const TraceFolder folder;
   DefaultHandle handle( folder, false );
   traceNumber( 1 );
   std::thread( traceNumber, 2 ).join();
   EXPECT_EQ( folder.texts(), ( Texts{ "number 1", "number 2" } ) );
   EXPECT_EQ( folder.files().size(), 1U );
}

TEST( AHandleOfOneThread, hasAnotherFileAfterAFork ) {
   const TraceFolder folder;
   DefaultHandle handle( folder, false );
   traceNumber( 1 );
   const pid_t child = fork();
   if( child == 0 ) {
      traceNumber( 2 );
      _exit( 0 );
   }
   waitpid( child, nullptr, 0 );
   EXPECT_EQ( folder.texts(), ( Texts{ "number 1", "number 2" } ) );
   EXPECT_EQ( folder.files().size(), 2U );
}

TEST( AHandle, hasFilesOfItsOwnBesideAnother ) {
   const TraceFolder one;
   const TraceFolder other;
   {
      const DefaultHandle handle( one );
      traceNumber( 1 );
   }
   {
      const DefaultHandle handle( other );
      traceNumber( 2 );
   }
   EXPECT_EQ( one.texts(), Texts{ "number 1" } );
   EXPECT_EQ( other.texts(), Texts{ "number 2" } );
}

TEST( AHandle, keepsItsFileWhenAnotherTakesTurnsWithIt ) {
   const TraceFolder one;
   const TraceFolder other;
   Fennet::TraceHandle handle( one.path(), Fennet::minRingSize, true );
   Fennet::TraceHandle otherHandle( other.path(), Fennet::minRingSize, true );
   Fennet::TraceFile* const file = handle.mtTraceFile();
   Fennet::TraceFile* const otherFile = otherHandle.mtTraceFile();
   EXPECT_NE( file, nullptr );
   EXPECT_NE( otherFile, nullptr );
   EXPECT_EQ( handle.mtTraceFile(), file );
   EXPECT_EQ( otherHandle.mtTraceFile(), otherFile );
   EXPECT_EQ( one.files().size(), 1U );
   EXPECT_EQ( other.files().size(), 1U );
}

// The operations that a trace point consists of, one by one.
TEST( AMessageDescription, givesAnIdOnceAndDescribesItInTheFile ) {
   const TraceFolder folder;
   Fennet::TraceHandle handle( folder.path(), Fennet::minRingSize, true );
   Fennet::TraceFile& file = *handle.mtTraceFile();
   std::atomic< int > msgId = 0;
   Fennet::MsgDesc description( file, msgId, "a.cpp", 7 );
   EXPECT_GT( msgId, 0 );
   EXPECT_FALSE( file.describes( msgId ) );
   description.formatString().put( "p" );
   Fennet::msgDesc( description, "tag", "f", "<{}>" );
   EXPECT_TRUE( description.finish( "F", 3 ) );
   EXPECT_TRUE( file.describes( msgId ) );

   const int id = msgId;
   Fennet::MsgDesc again( file, msgId, "a.cpp", 7 );
   EXPECT_EQ( msgId, id );

   Fennet::RingBuf ring;
   ring.startMsg( file, msgId );
   EXPECT_TRUE( Fennet::put( ring, "text" ) );
   EXPECT_EQ( folder.texts(), Texts{} );
   ring.endMsg();
   EXPECT_EQ( folder.texts(), Texts{ "<text>" } );
   EXPECT_EQ( folder.records().at( 0 ).record.description->tag, "tag" );
}

TEST( ARecord, takesNothingMoreOnceAnArgumentWasRefused ) {
   const TraceFolder folder;
   Fennet::TraceHandle handle( folder.path(), Fennet::minRingSize, true );
   Fennet::TraceFile& file = *handle.mtTraceFile();
   Fennet::RingBuf ring;
   ring.startMsg( file, 1 );
   EXPECT_TRUE( Fennet::put( ring, std::string( Fennet::maxRecordSize - 24, 'x' ) ) );
   EXPECT_EQ( ring.room(), 6U );
   EXPECT_FALSE( Fennet::put( ring, std::int64_t{ 1 } ) );
   EXPECT_FALSE( Fennet::put( ring, true ) );
   EXPECT_FALSE( Fennet::put( ring, "" ) );
}

TEST( ARecord, takesNothingMoreOnceATextWasRefused ) {
   const TraceFolder folder;
   Fennet::TraceHandle handle( folder.path(), Fennet::minRingSize, true );
   Fennet::RingBuf ring;
   ring.startMsg( *handle.mtTraceFile(), 1 );
   EXPECT_TRUE( Fennet::put( ring, std::string( ring.room() - 3, 'x' ) ) );
   EXPECT_EQ( ring.room(), 1U );
   EXPECT_FALSE( Fennet::put( ring, "" ) );
   EXPECT_FALSE( Fennet::put( ring, true ) );
}

TEST( ATracePointDeathTest, endsTheProcessWhenItsIdIsNegative ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   std::atomic< int > msgId = -1;
   const Tessel::TracePoint point{ "a.cpp", 7, "f", "", 8, traceFacility, msgId };
   EXPECT_EXIT(
      point.trace(), testing::KilledBySignal( SIGABRT ),
      "^src/platform/trace/MsgDesc\\.cpp:[0-9]+: Fennet::MsgDesc::MsgDesc: "
      "Assertion `msgId_ >= 0' failed\\.\n$" );
}

TEST( ATracePoint, toleratesANegativeIdWhereNoRecordNeedsIt ) {
   std::atomic< int > msgId = -1;
   const Tessel::TracePoint point{ "a.cpp", 7, "f", "", 8, traceFacility, msgId };
   point.trace();
}

} // namespace
