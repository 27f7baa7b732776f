// What a traced process writes to its standard error.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TRACE_FACILITY( "StderrTraceTest" );

// Runs the body in a process that has not traced yet; gives what it writes to standard error.
std::string stderrOf( const std::function< void() >& body ) {
   int ends[2] = {};
   EXPECT_EQ( pipe( ends ), 0 );
   const pid_t child = fork();
   if( child == 0 ) {
      dup2( ends[1], STDERR_FILENO );
      close( ends[0] );
      close( ends[1] );
      body();
      _exit( 0 );
   }
   close( ends[1] );
   std::string text;
   char piece[4096];
   for( ssize_t size = 0; ( size = read( ends[0], piece, sizeof piece ) ) > 0; ) {
      text.append( piece, static_cast< std::size_t >( size ) );
   }
   close( ends[0] );
   int status = -1;
   waitpid( child, &status, 0 );
   EXPECT_EQ( status, 0 );
   return text;
}

// What stands for itself in a line whose time, thread and place vary: the thread's id as THREAD.
std::string withoutTime( const std::string& line ) {
   const std::size_t start = line.find( 'Z' );
   return start == std::string::npos ? line : line.substr( start + 1 );
}

void enable() {
   Orl::traceLevelsIs( "StderrTraceTest", Orl::allTraceLevels );
}

TEST( ATraceOnStderr, isOneLineWithTimeThreadFacilityPlaceOperationAndText ) {
   const std::string line = stderrOf( [] {
      enable();
      TRACE( 8, "Get {}", "Id" );
   } );
   EXPECT_THAT(
      line,
      testing::MatchesRegex( "20[0-9][0-9]-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-5][0-9]"
                             "\\.[0-9]{6}Z [0-9]+ StderrTraceTest/8 .*StderrTraceTest\\.cpp:[0-9]+ "
                             "operator\\(\\): Get Id\n" ) );
}

TEST( ATraceOnStderr, namesTheThreadOfAForkedChild ) {
   const std::string texts = stderrOf( [] {
      enable();
      TRACE( 8, "parent {}", gettid() );
      const pid_t child = fork();
      if( child == 0 ) {
         TRACE( 8, "child {}", gettid() );
         _exit( 0 );
      }
      waitpid( child, nullptr, 0 );
   } );
   EXPECT_THAT(
      texts, testing::ContainsRegex( "Z ([0-9]+) [^\n]*: parent [0-9]+\n.*Z ([0-9]+) .*child" ) );
   for( std::size_t at = 0; at < texts.size(); at = texts.find( '\n', at ) + 1 ) {
      const std::string line = withoutTime( texts.substr( at, texts.find( '\n', at ) - at ) );
      const std::string shown = line.substr( 1, line.find( ' ', 1 ) - 1 );
      EXPECT_EQ( shown, line.substr( line.rfind( ' ' ) + 1 ) );
   }
}

TEST( ATraceOnStderr, hasTheTimeOfItsCall ) {
   const auto now = [] {
      timespec time{};
      clock_gettime( CLOCK_REALTIME, &time );
      char text[40];
      std::strftime( text, sizeof text, "%Y-%m-%dT%H:%M:%S.", std::gmtime( &time.tv_sec ) );
      const std::string micros = std::to_string( 1'000'000 + time.tv_nsec / 1000 );
      return text + micros.substr( 1 ) + "Z";
   };
   // Often enough to meet all parts of a second.
   for( int i = 0; i < 20; ++i ) {
      const std::string before = now();
      const std::string line = stderrOf( [] {
         enable();
         TRACE( 8, "" );
      } );
      const std::string time = line.substr( 0, line.find( ' ' ) );
      EXPECT_GE( time, before );
      EXPECT_LE( time, now() );
   }
}

TEST( ATraceOnStderr, showsNoTextPartForAnEmptyFormat ) {
   const std::string line = stderrOf( [] {
      enable();
      TRACE( 8, "" );
   } );
   EXPECT_THAT( line, testing::EndsWith( " operator()\n" ) );
}

TEST( ATraceOnStderr, showsAnOwnTag ) {
   const std::string line = stderrOf( [] {
      const Orl::TraceHandle handle( "Own", false );
      Tessel::fmtrace( handle, 3, "a.cpp", "f", 7, "tag", "text" );
   } );
   EXPECT_THAT( line, testing::MatchesRegex( ".*Z [0-9]+ Own/3 a\\.cpp:7 f \\[tag\\]: text\n" ) );
}

TEST( ATraceOnStderr, writesControlCharactersAsNumbers ) {
   const std::string line = stderrOf( [] {
      enable();
      TRACE( 8, "{}", "a\nb\x1b[2J\x7f\xc3\xa9" );
   } );
   EXPECT_THAT( line, testing::EndsWith( ": a\\x0ab\\x1b[2J\\x7f\xc3\xa9\n" ) );
}

TEST( ATraceOnStderr, writesAControlCharacterAsANumberWhereverItStands ) {
   constexpr std::size_t mostSize = 20;
   const std::string lines = stderrOf( [] {
      enable();
      for( std::size_t size = 1; size <= mostSize; ++size ) {
         for( std::size_t at = 0; at < size; ++at ) {
            std::string text( size, 'x' );
            text[at] = '\t';
            TRACE( 8, "{}", text );
         }
      }
   } );
   std::string expected;
   for( std::size_t size = 1; size <= mostSize; ++size ) {
      for( std::size_t at = 0; at < size; ++at ) {
         expected += std::string( at, 'x' ) + "\\x09" + std::string( size - at - 1, 'x' ) + '\n';
      }
   }
   std::string texts;
   for( std::size_t at = 0; at < lines.size(); at = lines.find( '\n', at ) + 1 ) {
      const std::string line = lines.substr( at, lines.find( '\n', at ) + 1 - at );
      texts += line.substr( line.rfind( ' ' ) + 1 );
   }
   EXPECT_EQ( texts, expected );
}

TEST( ATraceOnStderr, writesEachControlCharacterAsANumberAndNoOther ) {
   const std::string lines = stderrOf( [] {
      enable();
      for( int code = 1; code < 256; ++code ) {
         TRACE( 8, "<xxxxxxxxxx{}xxxxxxxxxx>", std::string( 1, static_cast< char >( code ) ) );
      }
   } );
   std::string expected;
   for( int code = 1; code < 256; ++code ) {
      char number[5];
      snprintf( number, sizeof number, "\\x%02x", static_cast< unsigned >( code ) );
      expected += "<xxxxxxxxxx";
      expected += code < 32 || code == 127 ? number : std::string( 1, static_cast< char >( code ) );
      expected += "xxxxxxxxxx>\n";
   }
   std::string texts;
   for( std::size_t at = 0; ( at = lines.find( ": <xxx", at ) ) != std::string::npos; ++at ) {
      texts += lines.substr( at + 2, lines.find( '\n', at ) - 1 - at );
   }
   EXPECT_EQ( texts, expected );
}

TEST( ATraceOnStderr, isCutWhereAPipeTakesNoMoreAtOnce ) {
   const std::string line = stderrOf( [] {
      enable();
      TRACE( 8, "{}", std::string( 10'000, 'x' ) );
   } );
   EXPECT_EQ( line.size(), std::size_t{ PIPE_BUF } );
   EXPECT_THAT( line, testing::EndsWith( "xxx...\n" ) );
}

TEST( ATraceOnStderr, isCutWhicheverPartIsTooLong ) {
   static const std::string tooLong( PIPE_BUF, 'x' );
   static const std::string manyControls( PIPE_BUF, '\n' );
   const auto lineOf = []( const char* facility, const char* file, const std::string& text ) {
      const std::string line = stderrOf( [&] {
         const Orl::TraceHandle handle( facility, false );
         Tessel::fmtrace( handle, 31, file, "f", 7, "tag", "{}", text );
      } );
      EXPECT_EQ( line.size(), std::size_t{ PIPE_BUF } );
      return withoutTime( line );
   };
   const std::string ofFacility = lineOf( tooLong.c_str(), "a.cpp", "text" );
   EXPECT_THAT( ofFacility, testing::MatchesRegex( " [0-9]+ x+\\.\\.\\.\n" ) );
   const std::string ofFile = lineOf( "Own", tooLong.c_str(), "text" );
   EXPECT_THAT( ofFile, testing::MatchesRegex( " [0-9]+ Own/31 x+\\.\\.\\.\n" ) );
   const std::string ofText = lineOf( "Own", "a.cpp", manyControls );
   EXPECT_THAT(
      ofText,
      testing::MatchesRegex( " [0-9]+ Own/31 a\\.cpp:7 f \\[tag\\]: [x0a\\\\]+\\.\\.\\.\n" ) );
}

TEST( ATraceOnStderr, isNeverTornByAnotherThread ) {
   constexpr int threads = 4;
   constexpr int traces = 250;
   const std::string texts = stderrOf( [] {
      enable();
      std::vector< std::thread > tracing;
      for( int thread = 0; thread < threads; ++thread ) {
         tracing.emplace_back( [thread] {
            const std::string text( 1000, static_cast< char >( 'a' + thread ) );
            for( int trace = 0; trace < traces; ++trace ) {
               TRACE( 8, "{}", text );
            }
         } );
      }
      for( std::thread& thread : tracing ) {
         thread.join();
      }
   } );
   int lines = 0;
   for( std::size_t at = 0; at < texts.size(); ++lines ) {
      const std::size_t end = texts.find( '\n', at );
      ASSERT_NE( end, std::string::npos );
      const std::string text = texts.substr( end - 1000, 1000 );
      ASSERT_EQ( text, std::string( 1000, text.front() ) );
      at = end + 1;
   }
   EXPECT_EQ( lines, threads * traces );
}

TEST( ATraceOnStderr, isPrecededByItsPriorityUnderTheJournal ) {
   const std::string texts = stderrOf( [] {
      struct stat status {};
      fstat( STDERR_FILENO, &status );
      const std::string stream =
         std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
      setenv( "JOURNAL_STREAM", stream.c_str(), 1 );
      enable();
      TRACE( 0, "" );
      TRACE( 6, "" );
      TRACE( 31, "" );
   } );
   EXPECT_THAT( texts, testing::MatchesRegex( "<5>20[^\n]*\n<6>20[^\n]*\n<7>20[^\n]*\n" ) );
}

TEST( ATraceOnStderr, hasNoPriorityWhereStderrIsNotTheJournal ) {
   const std::string texts = stderrOf( [] {
      setenv( "JOURNAL_STREAM", "1:1", 1 );
      enable();
      TRACE( 8, "" );
   } );
   EXPECT_THAT( texts, testing::StartsWith( "20" ) );
}

TEST( ATraceOnStderr, isLostWhereStderrIsClosed ) {
   const std::string texts = stderrOf( [] {
      const int saved = dup( STDERR_FILENO );
      close( STDERR_FILENO );
      setenv( "JOURNAL_STREAM", "1:1", 1 );
      enable();
      TRACE( 8, "lost" );
      dup2( saved, STDERR_FILENO );
      TRACE( 8, "" );
   } );
   EXPECT_THAT( texts, testing::MatchesRegex( "20[^\n]* operator\\(\\)\n" ) );
}

using Texts = std::vector< std::string >;

std::string stderrOfTracedProcess( const char* variable, const char* value ) {
   return stderrOf( [=] {
      setenv( variable, value, 1 );
      execl( TRACED_PROCESS, TRACED_PROCESS, static_cast< char* >( nullptr ) );
      _exit( 127 );
   } );
}

Texts lastWords( const std::string& lines ) {
   Texts words;
   for( std::size_t at = 0; at < lines.size(); at = lines.find( '\n', at ) + 1 ) {
      const std::string line = lines.substr( at, lines.find( '\n', at ) - at );
      words.push_back( line.substr( line.rfind( ' ' ) + 1 ) );
   }
   return words;
}

class TheTraceEnvironment : public testing::Test {
 protected:
   static Texts textsWith( const char* value ) {
      return lastWords( stderrOfTracedProcess( "TESSEL_TRACE", value ) );
   }
};

TEST_F( TheTraceEnvironment, enablesNothingWhenEmpty ) {
   EXPECT_EQ( textsWith( "" ), Texts{} );
}

TEST_F( TheTraceEnvironment, enablesTheLevelsOfAFacility ) {
   EXPECT_EQ( textsWith( "TracedProcess=5,31" ), ( Texts{ "five", "thirty-one" } ) );
}

TEST_F( TheTraceEnvironment, enablesEveryLevelOfAFacility ) {
   EXPECT_EQ(
      textsWith( "Other=1;TracedProcess=*" ), ( Texts{ "zero", "five", "eight", "thirty-one" } ) );
}

TEST_F( TheTraceEnvironment, addsUpLevelsNamedTwice ) {
   EXPECT_EQ( textsWith( "TracedProcess=5;TracedProcess=8" ), ( Texts{ "five", "eight" } ) );
}

TEST_F( TheTraceEnvironment, leavesOtherFacilitiesAlone ) {
   EXPECT_EQ( textsWith( "Traced=*;TracedProcess2=*" ), Texts{} );
}

class AMalformedTraceEnvironment : public testing::TestWithParam< const char* > {};

TEST_P( AMalformedTraceEnvironment, isReportedOnceAndEnablesNothing ) {
   EXPECT_EQ(
      stderrOfTracedProcess( "TESSEL_TRACE", GetParam() ),
      "TESSEL_TRACE has the malformed value \"" + std::string( GetParam() ) +
         "\" and enables nothing; it is written like "
         "\"Sodrel=5,8;SignalMonitor=*\"\n" );
}

INSTANTIATE_TEST_SUITE_P(
   , AMalformedTraceEnvironment,
   testing::Values(
      "TracedProcess", "TracedProcess=", "=5", "TracedProcess=32", "TracedProcess=-1",
      "TracedProcess=5,", "TracedProcess=5;Other", "TracedProcess=5;;Other=5", "TracedProcess=5 ",
      "TracedProcess=**", "TracedProcess=99999999999999999999" ) );

TEST( TheRingEnvironment, makesTheDefaultHandleWhenTheLibraryIsLoaded ) {
   const Fennet::TraceFolder folder;
   EXPECT_EQ(
      stderrOfTracedProcess( "FENNET_TRACE", ( folder.path().string() + ",64K" ).c_str() ), "" );
   EXPECT_EQ( folder.texts(), ( Texts{ "zero", "five", "eight", "thirty-one" } ) );
   // One for each thread.
   EXPECT_EQ( folder.files().size(), 2U );
}

TEST( TheRingEnvironment, takesCommasInTheFolderAndRoundsTheSizeUp ) {
   const Fennet::TraceFolder folder;
   const auto inner = folder.path() / "a,b";
   std::filesystem::create_directory( inner );
   EXPECT_EQ( stderrOfTracedProcess( "FENNET_TRACE", ( inner.string() + ",65537" ).c_str() ), "" );
   const auto file = std::filesystem::directory_iterator( inner )->path();
   EXPECT_GE( std::filesystem::file_size( file ), std::size_t{ 2 * Fennet::minRingSize } );
}

struct RingSetting {
   const char* text;
   std::uint32_t size;
};
class ARingEnvironment : public testing::TestWithParam< RingSetting > {};

TEST_P( ARingEnvironment, sizesTheRing ) {
   const Fennet::TraceFolder folder;
   const std::string value = folder.path().string() + "," + GetParam().text;
   EXPECT_EQ( stderrOfTracedProcess( "FENNET_TRACE", value.c_str() ), "" );
   ASSERT_FALSE( folder.files().empty() );
   std::ifstream file( folder.files()[0], std::ios::binary );
   std::uint32_t size = 0;
   file.seekg( offsetof( Fennet::FileHeader, ringSize ) );
   file.read( reinterpret_cast< char* >( &size ), sizeof size );
   EXPECT_EQ( size, GetParam().size );
}

INSTANTIATE_TEST_SUITE_P(
   , ARingEnvironment,
   testing::Values(
      RingSetting{ "65536", 64 << 10 }, RingSetting{ "64K", 64 << 10 },
      RingSetting{ "65K", 128 << 10 }, RingSetting{ "1M", 1 << 20 } ) );

TEST( TheRingEnvironment, mayAskForTheLargestRing ) {
   EXPECT_EQ(
      stderrOfTracedProcess( "FENNET_TRACE", "/nowhere/at/all,1024M" ),
      "Fennet: no trace file can be made in \"/nowhere/at/all\": No such file or directory; "
      "the thread leaves no records\n" );
}

class AMalformedRingEnvironment : public testing::TestWithParam< const char* > {};

TEST_P( AMalformedRingEnvironment, isReportedOnceAndTracesNothing ) {
   EXPECT_EQ(
      stderrOfTracedProcess( "FENNET_TRACE", GetParam() ),
      "FENNET_TRACE has the malformed value \"" + std::string( GetParam() ) +
         "\" and traces nothing; it is written like \"/var/tmp/traces,1M\"\n" );
}

INSTANTIATE_TEST_SUITE_P(
   , AMalformedRingEnvironment,
   testing::Values(
      "", "/tmp", "/tmp,", "/tmp,1G", "/tmp,1KK", "/tmp,63K", "/tmp,1025M", "/tmp,-1M", "tmp,1M",
      "/tmp,99999999999999999999", "/tmp,18446744073709551615M", "/tmp,1M ", "/tmp,65536X" ) );

} // namespace
