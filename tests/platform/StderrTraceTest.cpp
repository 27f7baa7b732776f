// What a traced process writes to its standard error.
#include <platform/trace/Line.h>
#include <platform/trace/Trace.h>

#include "Process.h"
#include "TraceFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace SodrelTest {
namespace {

TRACE_FACILITY( "StderrTraceTest" );

void enable() {
   traceFacility.levelsIs( Orl::allTraceLevels );
}

void traceInFull( const char* facility, const char* file, const std::string& text ) {
   constexpr int least = std::numeric_limits< int >::min();
   const Orl::TraceHandle handle( facility, false );
   Tessel::fmtrace( handle, 31, file, "f", least, "tag", "{}", text );
}

TEST( ATraceOnStderr, isOneLineWithTimeThreadFacilityPlaceOperationAndText ) {
   const std::string lines = stderrOf( [] {
      enable();
      TRACE( 8, "Get {}", "Id" );
      TRACE( 8, "" );
      traceInFull( "Own", "a.cpp", "text" );
   } );
   const std::string start =
      "20[0-9][0-9]-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\\.[0-9]{6}Z [0-9]+ ";
   const std::string place = "StderrTraceTest/8 .*StderrTraceTest\\.cpp:[0-9]+ operator\\(\\)";
   EXPECT_THAT(
      lines, testing::MatchesRegex(
                start + place + ": Get Id\n" + start + place + "\n" + start +
                "Own/31 a\\.cpp:-2147483648 f \\[tag\\]: text\n" ) );
}

TEST( ATraceOnStderr, namesTheThreadOfAForkedChild ) {
   const std::string lines = stderrOf( [&] {
      enable();
      TRACE( 8, "" );
      EXPECT_EQ( statusOf( [] { TRACE( 8, "{} is the child", gettid() ); } ), 0 );
   } );
   const std::string line = lines.substr( lines.find( '\n' ) + 1 );
   const std::string thread = line.substr( line.find( ' ' ) + 1 );
   const std::string text = line.substr( line.rfind( ": " ) + 2 );
   EXPECT_EQ( thread.substr( 0, thread.find( ' ' ) ), text.substr( 0, text.find( ' ' ) ) );
}

TEST( AnEscapedText, hasNeitherControlCharactersNorInvalidBytes ) {
   const std::pair< std::string, std::string > texts[]{
      { "", "" },
      { "a\nb\t\x1b[2J\x1f\x7f", "a\\x0ab\\x09\\x1b[2J\\x1f\\x7f" },
      { std::string( 1, '\0' ), "\\x00" },
      { " ~\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", " ~\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80" },
      // The first and last characters of each length, and their neighbours.
      { "\xc2\x80 \xc2\x9b \xc2\x9f \xc2\xa0", "\\xc2\\x80 \\xc2\\x9b \\xc2\\x9f \xc2\xa0" },
      { "\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf", "\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf" },
      { "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf" },
      { "\xc1\xbf", "\\xc1\\xbf" },
      { "\xe0\x9f\xbf", "\\xe0\\x9f\\xbf" },
      { "\xf0\x8f\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf" },
      { "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80" },
      { "\xed\x9f\xbf\xed\xa0\x80\xed\xbf\xbf\xee\x80\x80",
        "\xed\x9f\xbf\\xed\\xa0\\x80\\xed\\xbf\\xbf\xee\x80\x80" },
      // Bytes that start no character, and truncated characters.
      { "\x80 \x9b \xbf \xf8 \xff", "\\x80 \\x9b \\xbf \\xf8 \\xff" },
      { "\xc3", "\\xc3" },
      { "\xe2\x82", "\\xe2\\x82" },
      { "\xe2\x82x\xc3x\xc3\xc0", "\\xe2\\x82x\\xc3x\\xc3\\xc0" },
   };
   for( const auto& [text, shown] : texts ) {
      EXPECT_EQ( Tessel::Impl::escaped( text ), shown );
   }
   EXPECT_EQ( Tessel::Impl::escaped( std::string_view( "\xc3\xa9", 1 ) ), "\\xc3" );
}

TEST( ATraceOnStderr, isEscaped ) {
   const std::string line = stderrOf( [] {
      enable();
      TRACE( 8, "{}", "a\n\xc2\x9b\x9b\xc3\xa9" );
   } );
   EXPECT_THAT( line, testing::EndsWith( ": a\\x0a\\xc2\\x9b\\x9b\xc3\xa9\n" ) );
}

TEST( ATraceOnStderr, isCutWhereAPipeTakesNoMoreAtOnce ) {
   static const std::string tooLong( PIPE_BUF, 'x' );
   const auto lineOf = []( const char* facility, const char* file, const std::string& text ) {
      return stderrOf( [&] { traceInFull( facility, file, text ); } );
   };
   const std::string start = "20[^ ]*Z [0-9]+ ";
   for( const auto& [line, shape] : {
           std::pair( lineOf( tooLong.c_str(), "a.cpp", "text" ), start + "x+\\.\\.\\.\n" ),
           std::pair( lineOf( "Own", tooLong.c_str(), "text" ), start + "Own/31 x+\\.\\.\\.\n" ),
           std::pair( lineOf( "Own", "a", tooLong ), start + "Own/31 a:.* f .tag.: x+\\.\\.\\.\n" ),
        } ) {
      EXPECT_EQ( line.size(), std::size_t{ PIPE_BUF } );
      EXPECT_THAT( line, testing::MatchesRegex( shape ) );
   }
}

TEST( AReport, isCutBeforeACharacterWhereAPipeTakesNoMoreAtOnce ) {
   const auto xs = []( std::size_t count ) { return std::string( count, 'x' ); };
   constexpr std::size_t most = PIPE_BUF - 1;
   const std::pair< std::string, std::string > texts[]{
      { xs( most ), xs( most ) },
      { xs( most + 1 ), xs( most - 3 ) + "..." },
      { xs( most - 3 ) + "\xc3\xa9 xx", xs( most - 3 ) + "..." },
      { xs( most - 4 ) + "\xc3\xa9 xx", xs( most - 4 ) + "..." },
      { xs( most - 5 ) + "\xe2\x82\xac xx", xs( most - 5 ) + "..." },
   };
   for( const auto& [text, shown] : texts ) {
      EXPECT_EQ( stderrOf( [&message = text] { Tessel::Impl::report( message ); } ), shown + "\n" );
   }
}

TEST( ATraceOnStderr, isNeverTornByAnotherThread ) {
   constexpr int threads = 4;
   constexpr int traces = 250;
   const std::string lines = stderrOf( [] {
      enable();
      std::vector< std::jthread > tracing;
      for( int thread = 0; thread < threads; ++thread ) {
         tracing.emplace_back( [thread] {
            const std::string text( 1000, static_cast< char >( 'a' + thread ) );
            for( int trace = 0; trace < traces; ++trace ) {
               TRACE( 8, "{}", text );
            }
         } );
      }
   } );
   int count = 0;
   for( std::size_t at = 0; at < lines.size(); ++count ) {
      const std::size_t end = lines.find( '\n', at );
      ASSERT_NE( end, std::string::npos );
      const std::string text = lines.substr( end - 1000, 1000 );
      ASSERT_EQ( text, std::string( 1000, text.front() ) );
      at = end + 1;
   }
   EXPECT_EQ( count, threads * traces );
}

// The lines of a process that is told that the journal reads this stream.
std::string linesWithJournal( const std::function< std::string() >& stream ) {
   return stderrOf( [&] {
      setenv( "JOURNAL_STREAM", stream().c_str(), 1 );
      setenv( "TESSEL_TRACE", "TracedProcess=*", 1 );
      execl( TRACED_PROCESS, TRACED_PROCESS, static_cast< char* >( nullptr ) );
   } );
}

TEST( ATraceOnStderr, isPrecededByItsPriorityUnderTheJournal ) {
   const std::string lines = linesWithJournal( [] {
      struct stat status {};
      fstat( STDERR_FILENO, &status );
      return std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
   } );
   EXPECT_THAT(
      lines, testing::MatchesRegex(
                "<5>20[^\n]* zero\n<5>20[^\n]* five\n<6>20[^\n]* six\n<7>20[^\n]* eight\n"
                "<7>20[^\n]* thirty-one\n" ) );
}

TEST( ATraceOnStderr, hasNoPriorityWhereStderrIsNotTheJournal ) {
   EXPECT_THAT( linesWithJournal( [] { return "1:1"; } ), testing::StartsWith( "20" ) );
   EXPECT_EQ(
      linesWithJournal( [] {
         close( STDERR_FILENO );
         return "1:1";
      } ),
      "" );
}

class AProcessWithoutAReader : public testing::Test {
 protected:
   // Redirects standard error to a pipe that has no reader.
   static void loseTheReader() {
      int ends[2] = {};
      ASSERT_EQ( pipe( ends ), 0 );
      close( ends[0] );
      dup2( ends[1], STDERR_FILENO );
      enable();
   }
   static bool isPending( int signal ) {
      sigset_t pending{};
      sigpending( &pending );
      return sigismember( &pending, signal ) == 1;
   }
};

TEST_F( AProcessWithoutAReader, outlivesItsTraces ) {
   EXPECT_EQ(
      statusOf( [] {
         loseTheReader();
         TRACE( 8, "lost" );
         EXPECT_FALSE( isPending( SIGPIPE ) );
      } ),
      0 );
}

TEST_F( AProcessWithoutAReader, keepsSignalsThatWerePendingBefore ) {
   EXPECT_EQ(
      statusOf( [] {
         loseTheReader();
         sigset_t signals{};
         sigfillset( &signals );
         pthread_sigmask( SIG_BLOCK, &signals, nullptr );
         raise( SIGUSR1 );
         TRACE( 8, "lost" );
         EXPECT_FALSE( isPending( SIGPIPE ) );
         EXPECT_TRUE( isPending( SIGUSR1 ) );
         raise( SIGPIPE );
         TRACE( 8, "lost" );
         EXPECT_TRUE( isPending( SIGPIPE ) );
      } ),
      0 );
}

TEST_F( AProcessWithoutAReader, isStillEndedByItsOwnWrites ) {
   EXPECT_EQ(
      statusOf( [] {
         loseTheReader();
         TRACE( 8, "lost" );
         EXPECT_EQ( write( STDERR_FILENO, "x", 1 ), -1 );
      } ),
      128 + SIGPIPE );
}

} // namespace
} // namespace SodrelTest
