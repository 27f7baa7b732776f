// Ring-buffer traces: what a trace point writes, what a file keeps, and the order of threads.
#include <platform/trace/Trace.h>
#include <platform/value/String.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace SodrelTest {
namespace {

using Fennet::Argument;

TRACE_FACILITY( "RingTraceTest" );

class ARingTrace : public testing::Test {
 protected:
   // One trace point for many calls.
   static void traceNumber( int number ) { TRACE( 8, "number {}", number ); }

   TraceFolder folder;
   DefaultHandle handle{ folder };
};

TEST_F( ARingTrace, isWrittenWhenItsTextLevelIsOff ) {
   const Tessel::String method = "ReloadUnit";
   TRACE( 8, "Call {} {}, async={}", method, "a.service", true );
   TRACE( 8, "" );
   EXPECT_EQ( folder.texts(), ( Texts{ "Call ReloadUnit a.service, async=true", "" } ) );
}

TEST_F( ARingTrace, isDescribedByItsOrigin ) {
   const int line = __LINE__ + 1;
   TRACE( 8, "origin of {}", "it" );
   const auto records = folder.records();
   ASSERT_EQ( records.size(), 1U );
   const Fennet::Description& description = *records[0].record.description;
   EXPECT_EQ( description.sourceFile, __FILE__ );
   EXPECT_EQ( description.line, line );
   EXPECT_EQ( description.function, "TestBody" );
   EXPECT_EQ( description.format, "origin of {}" );
   EXPECT_EQ( description.tag, "" );
   EXPECT_EQ( description.facility, "RingTraceTest" );
   EXPECT_EQ( description.level, 8 );
   EXPECT_EQ( records[0].origin->pid, getpid() );
   EXPECT_EQ( records[0].origin->tid, gettid() );
}

TEST_F( ARingTrace, keepsArgumentsByTheirTypes ) {
   const auto least = std::numeric_limits< std::int64_t >::min();
   const auto most = std::numeric_limits< std::uint64_t >::max();
   TRACE(
      8, "{} {} {} {} {} {} {}", "text", false, -1, 4'000'000'000U, least, most,
      std::int8_t{ -3 } );
   const auto records = folder.records();
   ASSERT_EQ( records.size(), 1U );
   EXPECT_EQ(
      records[0].record.description->codes, ( Texts{ "p", "b", "si", "ui", "sl", "ul", "si" } ) );
   EXPECT_EQ(
      records[0].record.arguments,
      ( std::vector< Argument >{ std::string( "text" ), false, std::int64_t{ -1 },
                                 std::uint64_t{ 4'000'000'000 }, least, most,
                                 std::int64_t{ -3 } } ) );
   EXPECT_FALSE( records[0].record.cut );
}

TEST_F( ARingTrace, sharesItsLineWithAnother ) {
   // clang-format off
   TRACE( 8, "first" ); TRACE( 8, "second" );
   // clang-format on
   EXPECT_EQ( folder.texts(), ( Texts{ "first", "second" } ) );
}

TEST_F( ARingTrace, evaluatesItsArgumentsOnce ) {
   int evaluations = 0;
   TRACE( 8, "{}", ++evaluations );
   EXPECT_EQ( evaluations, 1 );
   EXPECT_EQ( folder.texts(), Texts{ "1" } );
}

TEST_F( ARingTrace, leavesErrnoAloneAndDoesNotMindIt ) {
   for( const int error : { EEXIST, EXDEV } ) {
      errno = error;
      traceNumber( error );
      EXPECT_EQ( errno, error );
   }
   EXPECT_EQ( folder.files().size(), 1U );
}

TEST_F( ARingTrace, isDescribedOnceInItsFile ) {
   traceNumber( 0 );
   const auto size = std::filesystem::file_size( folder.files().at( 0 ) );
   traceNumber( 1 );
   EXPECT_EQ( std::filesystem::file_size( folder.files().at( 0 ) ), size );
   EXPECT_EQ( folder.texts(), ( Texts{ "number 0", "number 1" } ) );
}

TEST_F( ARingTrace, endsWhereAnArgumentFindsNoRoom ) {
   constexpr std::size_t room = Fennet::blockSize - sizeof( Fennet::RecordHead ) - 2;
   const auto xs = []( std::size_t count ) { return std::string( count, 'x' ); };
   TRACE( 8, "{}", xs( room ) );
   TRACE( 8, "{}", xs( room + 1 ) );
   TRACE( 8, "{} {} {}", true, "a" + xs( 5000 ), 7 );
   TRACE( 8, "{} {} {}", xs( room - 4 ), 7, true );
   TRACE( 8, "{} {} {}", xs( room - 3 ), 7, true );
   TRACE( 8, "{} {} {}", xs( room - 2 ), "", true );
   TRACE( 8, "{} {} {}", xs( room - 1 ), "", true );
   EXPECT_EQ(
      folder.texts(),
      ( Texts{ xs( room ), xs( room ) + "...", "true a" + xs( room - 2 ) + "... ...",
               xs( room - 4 ) + " 7 ...", xs( room - 3 ) + " ... ...", xs( room - 2 ) + "  ...",
               xs( room - 1 ) + " ... ..." } ) );
   std::vector< bool > cut;
   for( const auto& record : folder.records() ) {
      cut.push_back( record.record.cut );
   }
   EXPECT_EQ( cut, ( std::vector< bool >{ false, true, true, true, true, true, true } ) );
}

TEST_F( ARingTrace, overwritesTheOldestWhenTheRingIsFull ) {
   constexpr int traces = 20'000;
   for( int number = 0; number < traces; ++number ) {
      traceNumber( number );
   }
   const Texts texts = folder.texts();
   // 24 bytes each, in the last block and all others except the one discarded to make room for it.
   constexpr std::size_t perBlock = Fennet::blockSize / 24;
   constexpr std::size_t blocks = Fennet::minRingSize / Fennet::blockSize;
   EXPECT_EQ( texts.size(), ( blocks - 1 ) * perBlock + traces % perBlock );
   int number = traces - static_cast< int >( texts.size() );
   for( const std::string& text : texts ) {
      ASSERT_EQ( text, "number " + std::to_string( number++ ) );
   }
}

TEST_F( ARingTrace, survivesRecordsOfAllLengthsAcrossTheRingsEnd ) {
   constexpr std::size_t traces = 5000;
   const auto textOfLength = []( std::size_t number ) {
      return std::string( number * 7 % 4081, static_cast< char >( 'a' + number % 26 ) );
   };
   for( std::size_t number = 0; number < traces; ++number ) {
      TRACE( 8, "{}", textOfLength( number ) );
      if( number % 100 != 99 ) {
         continue;
      }
      const Texts texts = folder.texts();
      ASSERT_GT( texts.size(), 10U );
      std::size_t next = number + 1 - texts.size();
      for( const std::string& text : texts ) {
         ASSERT_EQ( text, textOfLength( next++ ) );
      }
   }
}

TEST_F( ARingTrace, isInTheOrderOfTimeAcrossThreads ) {
   // Each number is traced by a different thread, after the previous one.
   Texts expected;
   for( int number = 0; number < 20; ++number ) {
      std::thread( traceNumber, number ).join();
      expected.push_back( "number " + std::to_string( number ) );
   }
   EXPECT_EQ( folder.texts(), expected );
   EXPECT_EQ( folder.files().size(), 20U );
}

TEST_F( ARingTrace, losesNothingFromManyThreadsAtOnce ) {
   constexpr int threads = 4;
   constexpr int traces = 500;
   std::vector< std::jthread > tracing;
   for( int thread = 0; thread < threads; ++thread ) {
      tracing.emplace_back( [] {
         for( int number = 0; number < traces; ++number ) {
            traceNumber( number );
         }
      } );
   }
   tracing.clear();
   std::map< int, int > next;
   for( const auto& record : folder.records() ) {
      ASSERT_EQ(
         record.record.arguments,
         std::vector< Argument >{ std::int64_t{ next[record.origin->tid]++ } } );
   }
   EXPECT_EQ( next.size(), threads );
   for( const auto& [thread, count] : next ) {
      EXPECT_EQ( count, traces );
   }
}

TEST_F( ARingTrace, goesToAFileThatOnlyItsUserCanRead ) {
   traceNumber( 1 );
   struct stat status {};
   ASSERT_EQ( stat( folder.files().at( 0 ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 07777, 0600U );
   const std::string name = std::to_string( getpid() ) + "-" + std::to_string( gettid() );
   EXPECT_EQ( folder.files().at( 0 ).filename(), name + ".0.fennet" );
}

// Counts the records that exist when a text arrives.
class CountingSink final : public Tessel::TraceSink {
 public:
   explicit CountingSink( const TraceFolder& folder ) : folder_( folder ) {}
   void traceIs( const Tessel::TextTrace& ) override { recordsAtText = folder_.records().size(); }

   std::size_t recordsAtText = 0;

 private:
   const TraceFolder& folder_;
};

TEST_F( ARingTrace, comesBeforeItsText ) {
   CountingSink sink( folder );
   Tessel::traceSinkIs( &sink );
   traceFacility.levelsIs( Orl::allTraceLevels );
   traceNumber( 1 );
   traceFacility.levelsIs( 0 );
   Tessel::traceSinkIs( nullptr );
   EXPECT_EQ( sink.recordsAtText, 1U );
}

} // namespace
} // namespace SodrelTest
