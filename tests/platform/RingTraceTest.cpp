// Ring-buffer traces: what a trace point writes, what a file keeps, threads and forks.
#include <platform/trace/Trace.h>
#include <platform/value/String.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Fennet::Argument;
using Fennet::DefaultHandle;
using Fennet::TraceFolder;
using Texts = std::vector< std::string >;

TRACE_FACILITY( "RingTraceTest" );

class ARingTrace : public testing::Test {
 protected:
   TraceFolder folder;
   DefaultHandle handle{ folder };
};

// One trace point for many calls.
void traceNumber( int number ) {
   TRACE( 8, "number {}", number );
}

TEST_F( ARingTrace, isWrittenWhenItsTextLevelIsOff ) {
   const Tessel::String method = "ReloadUnit";
   TRACE( 8, "Call {} {}, async={}", method, "a.service", true );
   EXPECT_EQ( folder.texts(), Texts{ "Call ReloadUnit a.service, async=true" } );
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

TEST_F( ARingTrace, isWrittenForAnEmptyFormat ) {
   TRACE( 8, "" );
   EXPECT_EQ( folder.texts(), Texts{ "" } );
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

TEST_F( ARingTrace, leavesErrnoAlone ) {
   errno = EXDEV;
   TRACE( 8, "anything" );
   EXPECT_EQ( errno, EXDEV );
}

TEST_F( ARingTrace, goesToTheFirstFileWhateverErrnoWas ) {
   errno = EEXIST;
   traceNumber( 1 );
   EXPECT_EQ( errno, EEXIST );
   EXPECT_EQ( folder.files().size(), 1U );
   EXPECT_EQ( folder.texts(), Texts{ "number 1" } );
}

TEST_F( ARingTrace, isDescribedOnceInItsFile ) {
   traceNumber( 0 );
   const auto size = std::filesystem::file_size( folder.files().at( 0 ) );
   traceNumber( 1 );
   EXPECT_EQ( std::filesystem::file_size( folder.files().at( 0 ) ), size );
   EXPECT_EQ( folder.texts(), ( Texts{ "number 0", "number 1" } ) );
}

TEST_F( ARingTrace, endsWhereALongTextFindsNoRoom ) {
   TRACE( 8, "{} {} {}", true, "a" + std::string( 5000, 'x' ), 7 );
   const auto records = folder.records();
   ASSERT_EQ( records.size(), 1U );
   EXPECT_TRUE( records[0].record.cut );
   const std::size_t kept = Fennet::maxRecordSize - sizeof( Fennet::RecordHead ) - 1 - 2;
   EXPECT_EQ( folder.texts(), Texts{ "true a" + std::string( kept - 1, 'x' ) + "... ..." } );
}

TEST_F( ARingTrace, keepsATextThatJustFits ) {
   const std::size_t room = Fennet::maxRecordSize - sizeof( Fennet::RecordHead ) - 2;
   TRACE( 8, "{}", std::string( room, 'x' ) );
   EXPECT_FALSE( folder.records().at( 0 ).record.cut );
   EXPECT_EQ( folder.texts(), Texts{ std::string( room, 'x' ) } );
}

TEST_F( ARingTrace, keepsANumberThatJustFits ) {
   const std::size_t room = Fennet::maxRecordSize - sizeof( Fennet::RecordHead ) - 2 - 4;
   TRACE( 8, "{} {} {}", std::string( room, 'x' ), 7, true );
   EXPECT_EQ( folder.texts(), Texts{ std::string( room, 'x' ) + " 7 ..." } );
}

TEST_F( ARingTrace, leavesOutANumberThatFindsNoRoom ) {
   const std::size_t room = Fennet::maxRecordSize - sizeof( Fennet::RecordHead ) - 2 - 3;
   TRACE( 8, "{} {} {}", std::string( room, 'x' ), 7, true );
   EXPECT_TRUE( folder.records().at( 0 ).record.cut );
   EXPECT_EQ( folder.texts(), Texts{ std::string( room, 'x' ) + " ... ..." } );
}

TEST_F( ARingTrace, overwritesTheOldestWhenTheRingIsFull ) {
   constexpr int traces = 20'000;
   for( int number = 0; number < traces; ++number ) {
      traceNumber( number );
   }
   const Texts texts = folder.texts();
   // 24 bytes each; what is free: two blocks, the room of two records, and the ring's last.
   const std::size_t kept = Fennet::minRingSize * 30 / 32 - 3 * Fennet::maxRecordSize;
   EXPECT_GE( texts.size(), kept / 24 - 1 );
   EXPECT_LE( texts.size(), Fennet::minRingSize / 24 );
   int number = traces - static_cast< int >( texts.size() );
   for( const std::string& text : texts ) {
      ASSERT_EQ( text, "number " + std::to_string( number++ ) );
   }
}

TEST_F( ARingTrace, survivesRecordsOfAllLengthsAcrossTheRingsEnd ) {
   constexpr std::size_t traces = 500;
   const auto textOfLength = []( std::size_t number ) {
      return std::string( number * 7 % 4000, static_cast< char >( 'a' + number % 26 ) );
   };
   for( std::size_t number = 0; number < traces; ++number ) {
      TRACE( 8, "{}", textOfLength( number ) );
   }
   const Texts texts = folder.texts();
   ASSERT_GT( texts.size(), 10U );
   std::size_t number = traces - texts.size();
   for( const std::string& text : texts ) {
      ASSERT_EQ( text, textOfLength( number++ ) );
   }
}

TEST_F( ARingTrace, hasTimesInTheOrderOfItsCalls ) {
   timespec before{};
   clock_gettime( CLOCK_REALTIME, &before );
   traceNumber( 1 );
   traceNumber( 2 );
   timespec after{};
   clock_gettime( CLOCK_REALTIME, &after );
   const auto records = folder.records();
   ASSERT_EQ( records.size(), 2U );
   EXPECT_LE( records[0].time, records[1].time );
   // Two clocks read close to each other agree to a millisecond by far.
   constexpr std::int64_t second = 1'000'000'000;
   constexpr std::int64_t slack = 1'000'000;
   EXPECT_GE( records[0].time, before.tv_sec * second + before.tv_nsec - slack );
   EXPECT_LE( records[1].time, after.tv_sec * second + after.tv_nsec + slack );
}

TEST_F( ARingTrace, isInTheOrderOfTimeAcrossThreads ) {
   // Each number is traced by another thread, after the one before.
   for( int number = 0; number < 20; ++number ) {
      std::thread( traceNumber, number ).join();
   }
   Texts expected;
   for( int number = 0; number < 20; ++number ) {
      expected.push_back( "number " + std::to_string( number ) );
   }
   EXPECT_EQ( folder.texts(), expected );
   EXPECT_EQ( folder.files().size(), 20U );
}

TEST_F( ARingTrace, losesNothingFromManyThreadsAtOnce ) {
   constexpr int threads = 4;
   constexpr int traces = 500;
   std::vector< std::thread > tracing;
   for( int thread = 0; thread < threads; ++thread ) {
      tracing.emplace_back( [] {
         for( int number = 0; number < traces; ++number ) {
            traceNumber( number );
         }
      } );
   }
   for( std::thread& thread : tracing ) {
      thread.join();
   }
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

TEST_F( ARingTrace, goesToFilesOfTheChildAfterAFork ) {
   traceNumber( 1 );
   const pid_t child = fork();
   if( child == 0 ) {
      traceNumber( 2 );
      _exit( folder.files().size() == 2 ? 0 : 1 );
   }
   int status = -1;
   waitpid( child, &status, 0 );
   EXPECT_EQ( status, 0 );
   traceNumber( 3 );

   const auto records = folder.records();
   ASSERT_EQ( records.size(), 3U );
   EXPECT_EQ( folder.texts(), ( Texts{ "number 1", "number 2", "number 3" } ) );
   EXPECT_EQ( records[0].origin->pid, getpid() );
   EXPECT_EQ( records[1].origin->pid, child );
   EXPECT_EQ( records[2].origin->pid, getpid() );
}

TEST_F( ARingTrace, goesToAFileThatOnlyItsUserCanRead ) {
   traceNumber( 1 );
   struct stat status {};
   ASSERT_EQ( stat( folder.files().at( 0 ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 07777, 0600U );
   const std::string name = std::to_string( getpid() ) + "-" + std::to_string( gettid() );
   EXPECT_EQ( folder.files().at( 0 ).filename(), name + ".0.fennet" );
}

// Traces once more while its thread's other thread-local objects are being destroyed.
struct LateTracer {
   ~LateTracer() { traceNumber( 2 ); }
};

TEST_F( ARingTrace, isLeftOutByAThreadThatIsEnding ) {
   std::thread( [] {
      thread_local const LateTracer tracer; // goes last, because it comes before the first trace
      traceNumber( 1 );
   } ).join();
   EXPECT_EQ( folder.texts(), Texts{ "number 1" } );
   EXPECT_EQ( folder.files().size(), 1U );
}

// Notes how many records there are when a text arrives.
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
   Orl::traceLevelsIs( "RingTraceTest", Orl::allTraceLevels );
   traceNumber( 1 );
   Orl::traceLevelsIs( "RingTraceTest", 0 );
   Tessel::traceSinkIs( nullptr );
   EXPECT_EQ( sink.recordsAtText, 1U );
}

TEST( AnAbsentRing, takesNothing ) {
   EXPECT_EQ( Fennet::defaultFennetHandle.load(), nullptr );
   traceNumber( 1 );
}

} // namespace
