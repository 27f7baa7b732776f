// The environment variables of a traced process, read when it is loaded.
#include "Process.h"
#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>

#include <unistd.h>

namespace SodrelTest {
namespace {

std::string
stderrWith( const char* variable, const std::string& value, const char* arg = nullptr ) {
   return stderrOf( [&] {
      setenv( variable, value.c_str(), 1 );
      execl( TRACED_PROCESS, TRACED_PROCESS, arg, static_cast< char* >( nullptr ) );
      _exit( 127 );
   } );
}

TEST( TheTraceEnvironment, enablesTheLevelsOfFacilities ) {
   const std::pair< const char*, Texts > settings[]{
      { "", {} },
      { "TracedProcess=5,31", { "five", "thirty-one" } },
      { "Other=1;TracedProcess=*", { "zero", "five", "six", "eight", "thirty-one" } },
      { "TracedProcess=5;TracedProcess=8;", { "five", "eight" } },
      { "Traced=*;TracedProcess2=*", {} },
   };
   for( const auto& [value, expected] : settings ) {
      Texts texts;
      std::istringstream lines( stderrWith( "TESSEL_TRACE", value ) );
      for( std::string line; std::getline( lines, line ); ) {
         texts.push_back( line.substr( line.rfind( ' ' ) + 1 ) );
      }
      EXPECT_EQ( texts, expected ) << value;
   }
}

TEST( TheTraceEnvironment, isReportedOnceAndIgnoredWhenMalformed ) {
   for( const std::string value :
        { "TracedProcess", "TracedProcess=", "=5", "TracedProcess=32", "TracedProcess=-1",
          "TracedProcess=5,", "TracedProcess=5;Other", "TracedProcess=5;;Other=5",
          "TracedProcess=5 ", "TracedProcess=**", "TracedProcess=99999999999999999999" } ) {
      EXPECT_EQ(
         stderrWith( "TESSEL_TRACE", value ),
         "TESSEL_TRACE: ignored malformed value \"" + value +
            "\": expected something like \"Sodrel=5,8;SignalMonitor=*\"\n" );
   }
}

// No child inherits the lock that another thread holds as it begins its first trace.
TEST( TheTraceEnvironment, isReadByChildrenForkedDuringTheFirstTrace ) {
   std::string value;
   for( int facility = 0; facility < 3000; ++facility ) {
      value += "Facility" + std::to_string( facility ) + "=1,2,3;";
   }
   for( int time = 0; time < 10; ++time ) {
      EXPECT_EQ( stderrWith( "TESSEL_TRACE", value, "forks" ), "" );
   }
}

TEST( TheRingEnvironment, makesTheDefaultHandleWhenTheLibraryIsLoaded ) {
   const TraceFolder folder;
   EXPECT_EQ( stderrWith( "FENNET_TRACE", folder.path().string() + ",64K" ), "" );
   EXPECT_EQ( folder.texts(), ( Texts{ "zero", "five", "six", "eight", "thirty-one" } ) );
   // One for each thread.
   EXPECT_EQ( folder.files().size(), 2U );
}

TEST( TheRingEnvironment, sizesTheRing ) {
   const std::pair< std::string, std::uint32_t > sizes[]{
      { "65536", 64 << 10 }, { "65537", 128 << 10 }, { "64K", 64 << 10 }, { "1M", 1 << 20 }
   };
   for( const auto& [size, expected] : sizes ) {
      const TraceFolder folder;
      EXPECT_EQ( stderrWith( "FENNET_TRACE", folder.path().string() + "," + size ), "" );
      EXPECT_EQ( folder.header()->ringSize, expected );
      EXPECT_GE( std::filesystem::file_size( folder.files().at( 0 ) ), expected );
   }
}

TEST( TheRingEnvironment, mayHaveACommaInTheFolderAndAskForTheLargestRing ) {
   EXPECT_EQ(
      stderrWith( "FENNET_TRACE", "/no,where,1024M" ),
      "Fennet: cannot create a trace file in \"/no,where\": No such file or directory; "
      "the thread leaves no records\n" );
}

TEST( TheRingEnvironment, isReportedOnceAndIgnoredWhenMalformed ) {
   for( const std::string value : { "", "/tmp", "/tmp,", "/tmp,1G", "/tmp,1KK", "/tmp,63K",
                                    "/tmp,1025M", "/tmp,-1M", "tmp,1M", "/tmp,99999999999999999999",
                                    "/tmp,18446744073709551615M", "/tmp,1M ", "/tmp,65536X" } ) {
      EXPECT_EQ(
         stderrWith( "FENNET_TRACE", value ),
         "FENNET_TRACE: ignored malformed value \"" + value +
            "\": expected something like \"/var/tmp/traces,1M\"\n" );
   }
}

} // namespace
} // namespace SodrelTest
