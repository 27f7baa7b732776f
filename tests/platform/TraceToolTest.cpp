// The program fennet-read as its users run it.
#include <platform/trace/Trace.h>

#include "Process.h"
#include "TraceFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <thread>

#include <unistd.h>

namespace SodrelTest {
namespace {

TRACE_FACILITY( "TraceToolTest" );

// What follows the last separator in each line.
Texts endsOfLines( const std::string& lines, std::string_view separator ) {
   Texts ends;
   std::istringstream stream( lines );
   for( std::string line; std::getline( stream, line ); ) {
      ends.push_back( line.substr( line.rfind( separator ) + separator.size() ) );
   }
   return ends;
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
      std::thread( call, "Reload" ).join();
      get( "Names" );
   }

   Outcome read( const std::string& options ) const {
      return run( std::string( FENNET_READ ) + " " + options + " " + folder.path().string() );
   }
   Texts textsOf( const std::string& options ) const {
      const Outcome result = read( options );
      EXPECT_EQ( result.status, 0 );
      return endsOfLines( result.output, ": " );
   }
   std::string timeOf( std::size_t record ) const {
      return Fennet::formatTime( folder.records().at( record ).time );
   }

   TraceFolder folder;
};

TEST_F( TheReader, printsTheRecordsThatAreWanted ) {
   EXPECT_EQ( textsOf( "" ), ( Texts{ "Get Id", "Call Reload", "Get Names" } ) );
   EXPECT_EQ( textsOf( "--operation call" ), Texts{ "Call Reload" } );
   EXPECT_EQ( textsOf( "--facility TraceToolTest" ).size(), 3U );
   EXPECT_EQ( textsOf( "--facility Trace" ), Texts{} );
   EXPECT_EQ( textsOf( "--since " + timeOf( 1 ) ), ( Texts{ "Call Reload", "Get Names" } ) );
   EXPECT_EQ( textsOf( "--until " + timeOf( 1 ) ), ( Texts{ "Get Id", "Call Reload" } ) );
   EXPECT_EQ( textsOf( "--since 2020-01-01" ).size(), 3U );
   EXPECT_EQ( textsOf( "--grep '^Get (Id|Foo)$'" ), Texts{ "Get Id" } );
   EXPECT_EQ( textsOf( "--until 2020-01-01" ), Texts{} );
}

TEST_F( TheReader, printsNoColoursWhereItIsNoTerminalUnlessAsked ) {
   EXPECT_EQ( read( "" ).output.find( '\x1b' ), std::string::npos );
   EXPECT_NE( read( "--colour always" ).output.find( '\x1b' ), std::string::npos );
   EXPECT_EQ( read( "--colour auto" ).output.find( '\x1b' ), std::string::npos );
   EXPECT_EQ( read( "--colour never" ).output.find( '\x1b' ), std::string::npos );
}

TEST_F( TheReader, printsJson ) {
   const std::string output = read( "--json --operation call" ).output;
   EXPECT_THAT( output, testing::StartsWith( "{\"time\":\"" ) );
   EXPECT_THAT( output, testing::EndsWith( "\"text\":\"Call Reload\"}\n" ) );
}

TEST_F( TheReader, exportsWhatOtherViewersRead ) {
   const auto target = folder.path() / "ctf";
   const Outcome result = read( "--until 2100-01-01 --ctf " + target.string() );
   EXPECT_EQ( result.output, "" );
   EXPECT_EQ( result.status, 0 );
   const Outcome viewer = run( "babeltrace2 --no-delta --clock-seconds " + target.string() );
   EXPECT_EQ( viewer.status, 0 );
   EXPECT_EQ(
      endsOfLines( viewer.output, "}, { " ),
      ( Texts{ "text = \"Get Id\", arg1 = \"Id\" }", "text = \"Call Reload\", arg1 = \"Reload\" }",
               "text = \"Get Names\", arg1 = \"Names\" }" } ) );
   std::string seconds = std::to_string( folder.records().at( 0 ).time );
   seconds.insert( seconds.size() - 9, "." );
   EXPECT_THAT( viewer.output, testing::StartsWith( "[" + seconds + "]" ) );
   EXPECT_EQ( read( "--until 2020-01-01 --ctf " + target.string() + "-empty" ).status, 0 );
   EXPECT_EQ(
      read( "--ctf " + target.string() ).output,
      "fennet-read: " + target.string() + ": File exists\n" );
}

TEST_F( TheReader, exportsTheSameAgain ) {
   const auto first = folder.path() / "first";
   const auto second = folder.path() / "second";
   EXPECT_EQ( read( "--ctf " + first.string() ).status, 0 );
   EXPECT_EQ( read( "--ctf " + second.string() ).status, 0 );
   for( const char* file : { "metadata", "stream-0", "stream-1" } ) {
      EXPECT_NE( contentOf( first / file ), "" );
      EXPECT_EQ( contentOf( first / file ), contentOf( second / file ) );
   }
   // Numbered in order of first appearance.
   EXPECT_THAT( contentOf( first / "stream-0" ), testing::HasSubstr( "Get Id" ) );
   EXPECT_THAT( contentOf( first / "stream-1" ), testing::HasSubstr( "Call Reload" ) );
}

TEST_F( TheReader, printsTheOtherFilesWhenOneIsDamaged ) {
   const auto damaged = folder.path() / "a\n.fennet";
   std::ofstream( damaged ) << "something else";
   const Outcome result = read( "" );
   EXPECT_EQ( result.status, 1 );
   EXPECT_THAT(
      result.output, testing::HasSubstr(
                        "fennet-read: " + ( folder.path() / "a\\x0a.fennet" ).string() +
                        ": at byte 0: this is no trace file of a machine like this one\n" ) );
   EXPECT_THAT( result.output, testing::HasSubstr( "Get Names\n" ) );
}

TEST_F( TheReader, failsWhereItsOutputTakesNothing ) {
   EXPECT_EQ(
      run( "(" + std::string( FENNET_READ ) + " " + folder.path().string() + ") >/dev/full" )
         .status,
      1 );
}

TEST_F( TheReader, saysWhatIsWrongWithItsOptions ) {
   const auto firstLineOf = [&]( const std::string& options ) {
      const Outcome result = run( std::string( FENNET_READ ) + " " + options );
      EXPECT_EQ( result.status, 2 );
      return result.output.substr( 0, result.output.find( '\n' ) );
   };
   const std::string name = "fennet-read: ";
   EXPECT_EQ( firstLineOf( "" ), name + "no input given: expected a trace file or a folder" );
   EXPECT_EQ(
      firstLineOf( "--since foo x" ),
      name + "invalid time 'foo': expected YYYY-MM-DD[THH:MM[:SS]]" );
   EXPECT_EQ( firstLineOf( "--grep '(' x" ), name + "invalid regular expression '('" );
   EXPECT_EQ(
      firstLineOf( "--colour red x" ),
      name + "invalid colour 'red': expected auto, always or never" );
   EXPECT_EQ( firstLineOf( "--follow --ctf y x" ), name + "--follow and --ctf cannot be combined" );
   EXPECT_THAT( firstLineOf( "--nonsense x" ), testing::HasSubstr( "nonsense" ) );
   EXPECT_EQ( run( std::string( FENNET_READ ) + " --help" ).status, 0 );
}

TEST_F( TheReader, followsAProcessUntilItEnds ) {
   const TraceFolder living;
   int go[2] = {};
   ASSERT_EQ( pipe( go ), 0 );
   const pid_t child = fork();
   if( child == 0 ) {
      const DefaultHandle handle( living );
      get( "before" );
      // Continues once the reader has printed the first record.
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
   EXPECT_EQ( statusOf( child ), 0 );
   ASSERT_NE( fgets( line, sizeof line, output ), nullptr );
   EXPECT_THAT( line, testing::EndsWith( ": Get after\n" ) );
   EXPECT_EQ( fgets( line, sizeof line, output ), nullptr );
   EXPECT_EQ( pclose( output ), 0 );
   close( go[1] );
}

} // namespace
} // namespace SodrelTest
