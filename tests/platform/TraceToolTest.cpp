// The program fennet-read as its users run it.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Fennet::DefaultHandle;
using Fennet::TraceFolder;
using Texts = std::vector< std::string >;

TRACE_FACILITY( "TraceToolTest" );

struct Outcome {
   std::string output; // standard error's with it
   int status;
};

Outcome run( const std::string& command ) {
   FILE* const pipe = popen( ( command + " 2>&1" ).c_str(), "r" );
   Outcome result{};
   char piece[4096];
   for( std::size_t size = 0; ( size = fread( piece, 1, sizeof piece, pipe ) ) > 0; ) {
      result.output.append( piece, size );
   }
   result.status = WEXITSTATUS( pclose( pipe ) );
   return result;
}

void get( const char* what ) {
   TRACE( 8, "Get {}", what );
}

void call( const char* what ) {
   TRACE( 5, "Call {}", what );
}

class TheReader : public testing::Test {
 protected:
   TheReader() {
      const DefaultHandle handle( folder );
      get( "Id" );
      call( "Reload" );
      get( "Names" );
   }

   Outcome read( const std::string& options ) const {
      return run( std::string( FENNET_READ ) + " " + options + " " + folder.path().string() );
   }

   // What follows the operation in each line.
   Texts textsOf( const std::string& options ) const {
      const Outcome result = read( options );
      EXPECT_EQ( result.status, 0 );
      Texts texts;
      for( std::size_t at = 0; at < result.output.size();
           at = result.output.find( '\n', at ) + 1 ) {
         const std::string line = result.output.substr( at, result.output.find( '\n', at ) - at );
         texts.push_back( line.substr( line.rfind( ": " ) + 2 ) );
      }
      return texts;
   }

   std::string timeOf( std::size_t record ) const {
      return Fennet::formatTime( folder.records().at( record ).time );
   }

   TraceFolder folder;
};

TEST_F( TheReader, printsEveryRecord ) {
   EXPECT_EQ( textsOf( "" ), ( Texts{ "Get Id", "Call Reload", "Get Names" } ) );
}

TEST_F( TheReader, printsNoColoursWhereItIsNoTerminalUnlessAsked ) {
   EXPECT_EQ( read( "" ).output.find( '\x1b' ), std::string::npos );
   EXPECT_NE( read( "--colour always" ).output.find( '\x1b' ), std::string::npos );
   EXPECT_EQ( read( "--colour never" ).output.find( '\x1b' ), std::string::npos );
}

TEST_F( TheReader, filtersByOperation ) {
   EXPECT_EQ( textsOf( "--operation call" ), Texts{ "Call Reload" } );
}

TEST_F( TheReader, filtersByFacility ) {
   EXPECT_EQ( textsOf( "--facility TraceToolTest" ).size(), 3U );
   EXPECT_EQ( textsOf( "--facility Trace" ), Texts{} );
}

TEST_F( TheReader, filtersByTime ) {
   EXPECT_EQ( textsOf( "--since " + timeOf( 1 ) ), ( Texts{ "Call Reload", "Get Names" } ) );
   EXPECT_EQ( textsOf( "--until " + timeOf( 1 ) ), ( Texts{ "Get Id", "Call Reload" } ) );
   EXPECT_EQ(
      textsOf( "--since " + timeOf( 1 ) + " --until " + timeOf( 1 ) ), Texts{ "Call Reload" } );
}

TEST_F( TheReader, filtersByText ) {
   EXPECT_EQ( textsOf( "--grep '^Get (Id|Foo)$'" ), Texts{ "Get Id" } );
}

TEST_F( TheReader, printsJson ) {
   const std::string output = read( "--json --operation call" ).output;
   EXPECT_THAT( output, testing::StartsWith( "{\"time\":\"" ) );
   EXPECT_THAT( output, testing::EndsWith( "\"text\":\"Call Reload\"}\n" ) );
}

TEST_F( TheReader, exportsWhatOtherViewersRead ) {
   const auto target = folder.path() / "ctf";
   const Outcome result = read( "--ctf " + target.string() );
   EXPECT_EQ( result.output, "" );
   EXPECT_EQ( result.status, 0 );
   const Outcome viewer = run( "babeltrace2 --no-delta --clock-seconds " + target.string() );
   EXPECT_EQ( viewer.status, 0 );
   Texts lines;
   for( std::size_t at = 0; at < viewer.output.size(); at = viewer.output.find( '\n', at ) + 1 ) {
      const std::size_t start = viewer.output.find( "}, { ", at );
      lines.push_back( viewer.output.substr( start, viewer.output.find( '\n', at ) - start ) );
   }
   EXPECT_EQ(
      lines, ( Texts{ "}, { text = \"Get Id\", arg1 = \"Id\" }",
                      "}, { text = \"Call Reload\", arg1 = \"Reload\" }",
                      "}, { text = \"Get Names\", arg1 = \"Names\" }" } ) );
   const std::int64_t time = folder.records().at( 0 ).time;
   char seconds[40];
   std::snprintf(
      seconds, sizeof seconds, "[%lld.%09lld]", static_cast< long long >( time / 1'000'000'000 ),
      static_cast< long long >( time % 1'000'000'000 ) );
   EXPECT_THAT( viewer.output, testing::StartsWith( seconds ) );
}

TEST_F( TheReader, printsTheOtherFilesWhenOneIsDamaged ) {
   const auto damaged = folder.path() / "a.fennet";
   std::ofstream( damaged ) << "something else";
   const Outcome result = read( "" );
   EXPECT_EQ( result.status, 1 );
   EXPECT_THAT(
      result.output, testing::HasSubstr(
                        "fennet-read: " + damaged.string() +
                        ": at byte 0: this is no trace file of a machine like this one\n" ) );
   EXPECT_THAT( result.output, testing::HasSubstr( "Get Names\n" ) );
}

TEST_F( TheReader, saysWhatIsWrongWithItsOptions ) {
   const auto firstLineOf = [&]( const std::string& options ) {
      const Outcome result = run( std::string( FENNET_READ ) + " " + options );
      EXPECT_EQ( result.status, 2 );
      return result.output.substr( 0, result.output.find( '\n' ) );
   };
   EXPECT_EQ( firstLineOf( "" ), "fennet-read: no file and no folder is named" );
   EXPECT_EQ( firstLineOf( "--since yesterday x" ), "fennet-read: no time: yesterday" );
   EXPECT_EQ( firstLineOf( "--grep '(' x" ), "fennet-read: no regular expression: (" );
   EXPECT_EQ( firstLineOf( "--colour red x" ), "fennet-read: --colour is auto, always or never" );
   EXPECT_EQ(
      firstLineOf( "--follow --ctf y x" ), "fennet-read: --follow and --ctf do not go together" );
   EXPECT_THAT( firstLineOf( "--nonsense x" ), testing::HasSubstr( "nonsense" ) );
}

TEST_F( TheReader, followsAProcessUntilItEnds ) {
   const TraceFolder living;
   int go[2] = {};
   ASSERT_EQ( pipe( go ), 0 );
   const pid_t child = fork();
   if( child == 0 ) {
      const DefaultHandle handle( living );
      get( "before" );
      // Goes on once the reader has printed the first record.
      char byte = 0;
      close( go[1] );
      if( ::read( go[0], &byte, 1 ) == 1 ) {
         get( "after" );
      }
      _exit( 0 );
   }
   close( go[0] );
   while( living.records().empty() ) {
      std::this_thread::yield();
   }
   const std::string command =
      std::string( FENNET_READ ) + " --follow " + living.files().at( 0 ).string();
   FILE* const output = popen( command.c_str(), "r" );
   char line[1000] = {};
   ASSERT_NE( fgets( line, sizeof line, output ), nullptr );
   EXPECT_THAT( line, testing::EndsWith( ": Get before\n" ) );
   ASSERT_EQ( write( go[1], "x", 1 ), 1 );
   waitpid( child, nullptr, 0 );
   ASSERT_NE( fgets( line, sizeof line, output ), nullptr );
   EXPECT_THAT( line, testing::EndsWith( ": Get after\n" ) );
   EXPECT_EQ( fgets( line, sizeof line, output ), nullptr );
   EXPECT_EQ( pclose( output ), 0 );
   close( go[1] );
}

} // namespace
