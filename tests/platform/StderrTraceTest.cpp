// What a traced process writes to its standard error.
#include <platform/trace/Trace.h>

#include "Stderr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace PlatformTest {
namespace {

TRACE_FACILITY( "StderrTraceTest" );

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

TEST( ATraceOnStderr, showsEachNumberWhole ) {
   const std::string line = stderrOf( [] {
      const Orl::TraceHandle handle( "Own", false );
      constexpr int least = std::numeric_limits< int >::min();
      Tessel::fmtrace( handle, least, "a.cpp", "f", least, "", "text" );
   } );
   EXPECT_THAT( line, testing::EndsWith( " Own/-2147483648 a.cpp:-2147483648 f: text\n" ) );
}

TEST( ATraceOnStderr, writesControlCharactersAsNumbers ) {
   const std::string line = stderrOf( [] {
      enable();
      TRACE( 8, "{}", "a\nb\x1b[2J\x7f\xc3\xa9" );
   } );
   EXPECT_THAT( line, testing::EndsWith( ": a\\x0ab\\x1b[2J\\x7f\xc3\xa9\n" ) );
}

struct Control {
   char character;
   const char* shown;

   friend void PrintTo( const Control& control, std::ostream* stream ) { *stream << control.shown; }
};
class AControlCharacter : public testing::TestWithParam< Control > {};

TEST_P( AControlCharacter, isWrittenAsANumberWhereverItStands ) {
   constexpr std::size_t mostSize = 20;
   const std::string lines = stderrOf( [] {
      enable();
      for( std::size_t size = 1; size <= mostSize; ++size ) {
         for( std::size_t at = 0; at < size; ++at ) {
            std::string text( size, 'b' );
            text[at] = GetParam().character;
            TRACE( 8, "{}", text );
         }
      }
   } );
   Texts expected;
   for( std::size_t size = 1; size <= mostSize; ++size ) {
      for( std::size_t at = 0; at < size; ++at ) {
         expected.push_back(
            std::string( at, 'b' ) + GetParam().shown + std::string( size - at - 1, 'b' ) );
      }
   }
   EXPECT_EQ( lastWords( lines ), expected );
}

INSTANTIATE_TEST_SUITE_P(
   , AControlCharacter, testing::Values( Control{ '\t', "\\x09" }, Control{ '\x7f', "\\x7f" } ) );

TEST( ATraceOnStderr, writesEachControlCharacterAndInvalidByteAsANumberAndNoOther ) {
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
      expected += code < 32 || code >= 127 ? number : std::string( 1, static_cast< char >( code ) );
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
      setenv( "TESSEL_TRACE", "TracedProcess=*", 1 );
      execl( TRACED_PROCESS, TRACED_PROCESS, static_cast< char* >( nullptr ) );
   } );
   EXPECT_THAT(
      texts, testing::MatchesRegex( "<5>20[^\n]*\n<5>20[^\n]*\n<7>20[^\n]*\n<7>20[^\n]*\n" ) );
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

} // namespace
} // namespace PlatformTest
