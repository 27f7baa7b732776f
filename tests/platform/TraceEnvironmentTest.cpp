// The environment variables of a traced process, read when it is loaded.
#include <platform/trace/FileFormat.h>

#include "Stderr.h"
#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>

#include <unistd.h>

namespace PlatformTest {
namespace {

std::string stderrOfTracedProcess( const char* variable, const char* value ) {
   return stderrOf( [=] {
      setenv( variable, value, 1 );
      execl( TRACED_PROCESS, TRACED_PROCESS, static_cast< char* >( nullptr ) );
      _exit( 127 );
   } );
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
      "TESSEL_TRACE: ignored malformed value \"" + std::string( GetParam() ) +
         "\": expected something like \"Sodrel=5,8;SignalMonitor=*\"\n" );
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
   ASSERT_FALSE( std::filesystem::is_empty( inner ) );
   const auto file = std::filesystem::directory_iterator( inner )->path();
   EXPECT_GE( std::filesystem::file_size( file ), std::size_t{ 2 * Fennet::minRingSize } );
}

struct RingSetting {
   const char* text;
   std::uint32_t size;

   friend void PrintTo( const RingSetting& setting, std::ostream* stream ) {
      *stream << setting.text;
   }
};
class ARingEnvironment : public testing::TestWithParam< RingSetting > {};

TEST_P( ARingEnvironment, sizesTheRing ) {
   const Fennet::TraceFolder folder;
   const std::string value = folder.path().string() + "," + GetParam().text;
   EXPECT_EQ( stderrOfTracedProcess( "FENNET_TRACE", value.c_str() ), "" );
   ASSERT_FALSE( folder.files().empty() );
   EXPECT_EQ( folder.header()->ringSize, GetParam().size );
}

INSTANTIATE_TEST_SUITE_P(
   , ARingEnvironment,
   testing::Values(
      RingSetting{ "65536", 64 << 10 }, RingSetting{ "64K", 64 << 10 },
      RingSetting{ "65K", 128 << 10 }, RingSetting{ "1M", 1 << 20 } ) );

TEST( TheRingEnvironment, mayAskForTheLargestRing ) {
   EXPECT_EQ(
      stderrOfTracedProcess( "FENNET_TRACE", "/nowhere/at/all,1024M" ),
      "Fennet: cannot create a trace file in \"/nowhere/at/all\": No such file or directory; "
      "the thread leaves no records\n" );
}

class AMalformedRingEnvironment : public testing::TestWithParam< const char* > {};

TEST_P( AMalformedRingEnvironment, isReportedOnceAndTracesNothing ) {
   EXPECT_EQ(
      stderrOfTracedProcess( "FENNET_TRACE", GetParam() ),
      "FENNET_TRACE: ignored malformed value \"" + std::string( GetParam() ) +
         "\": expected something like \"/var/tmp/traces,1M\"\n" );
}

INSTANTIATE_TEST_SUITE_P(
   , AMalformedRingEnvironment,
   testing::Values(
      "", "/tmp", "/tmp,", "/tmp,1G", "/tmp,1KK", "/tmp,63K", "/tmp,1025M", "/tmp,-1M", "tmp,1M",
      "/tmp,99999999999999999999", "/tmp,18446744073709551615M", "/tmp,1M ", "/tmp,65536X" ) );

} // namespace
} // namespace PlatformTest
