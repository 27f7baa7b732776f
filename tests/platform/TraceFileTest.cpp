// What a trace file says about its origin, and what its end gives back.
#include <platform/trace/TraceFile.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include <unistd.h>

namespace {

using Fennet::FileHeader;
using Fennet::TraceFile;
using Fennet::TraceFolder;

// Files are also read by tools of another release: a change of these needs another magic.
TEST( TheFormatOfTraceFiles, isTheOneOfItsMagic ) {
   EXPECT_EQ( Fennet::fileMagic, 0x0a32'5445'4e4e'4546U );
   EXPECT_EQ( Fennet::minRingSize, 65'536U );
   EXPECT_EQ( Fennet::maxRingSize, 1'073'741'824U );
   EXPECT_EQ( Fennet::headerSize, 4096U );
   EXPECT_EQ( Fennet::maxDescriptionsSize, 268'435'456U );
   EXPECT_EQ( Fennet::maxRecordSize, 4096U );
   EXPECT_EQ( Fennet::recordAlignment, 8U );
   EXPECT_EQ( Fennet::cutString, 0x8000 );
   EXPECT_EQ( Fennet::descriptionStrings, 6U );
   EXPECT_EQ( Fennet::maxDescriptionText, 8192U );
   EXPECT_EQ( offsetof( FileHeader, clocks ), 128U );
   EXPECT_EQ( offsetof( FileHeader, clockPairs ), 160U );
   EXPECT_EQ( offsetof( FileHeader, tail ), 192U );
   EXPECT_EQ( sizeof( FileHeader ), 256U );
   EXPECT_EQ( sizeof( Fennet::RecordHead ), 16U );
   EXPECT_EQ( sizeof( Fennet::DescriptionHead ), 16U );
}

TEST( ATraceFile, saysWhoWritesItAndOnWhichBoot ) {
   const TraceFolder folder;
   const auto file = TraceFile::create( folder.path(), Fennet::minRingSize );
   const auto header = folder.header();
   EXPECT_EQ( header->magic, Fennet::fileMagic );
   EXPECT_EQ( header->ringSize, Fennet::minRingSize );
   EXPECT_EQ( header->pid, getpid() );
   EXPECT_EQ( header->tid, gettid() );
   EXPECT_EQ( header->program, std::string( program_invocation_short_name ) );
   std::string boot;
   std::ifstream( "/proc/sys/kernel/random/boot_id" ) >> boot;
   EXPECT_EQ( header->bootId, boot );
}

TEST( ATraceFile, keepsTheStartOfALongName ) {
   const TraceFolder folder;
   std::string name( 100, 'n' );
   char* const before = std::exchange( program_invocation_short_name, name.data() );
   const auto file = TraceFile::create( folder.path(), Fennet::minRingSize );
   program_invocation_short_name = before;
   EXPECT_EQ( folder.header()->program, std::string( 63, 'n' ) );
}

TEST( ATraceFile, isClosedAtItsEnd ) {
   const auto openFiles = [] {
      const std::filesystem::directory_iterator files( "/proc/self/fd" );
      return std::distance( begin( files ), end( files ) );
   };
   // Lines of the process's mappings that are of trace files.
   const auto mappings = [] {
      std::ifstream maps( "/proc/self/maps" );
      int count = 0;
      for( std::string line; std::getline( maps, line ); ) {
         count += line.find( ".fennet" ) != std::string::npos ? 1 : 0;
      }
      return count;
   };
   const TraceFolder folder;
   const auto filesBefore = openFiles();
   const int mappingsBefore = mappings();
   for( int round = 0; round < 2; ++round ) {
      const auto file = TraceFile::create( folder.path(), Fennet::minRingSize );
      EXPECT_EQ( openFiles(), filesBefore + 1 );
      EXPECT_EQ( mappings(), mappingsBefore + 1 );
   }
   EXPECT_EQ( openFiles(), filesBefore );
   EXPECT_EQ( mappings(), mappingsBefore );
}

} // namespace
