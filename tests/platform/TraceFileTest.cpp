// Trace files: their format, what they say about their origin, and the times of their records.
#include <platform/trace/Trace.h>
#include <platform/trace/TraceFile.h>

#include "Process.h"
#include "ScriptedSystem.h"
#include "TraceFolder.h"

#include <fennet/TraceReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

namespace SodrelTest {
namespace {

using Fennet::FileHeader;
using Fennet::TraceFile;

TRACE_FACILITY( "TraceFileTest" );

constexpr std::int64_t second = 1'000'000'000;

// Tools of other releases read the files too: a change to any of these needs a new magic.
TEST( TheFormatOfTraceFiles, isTheOneOfItsMagic ) {
   EXPECT_EQ( Fennet::fileMagic, 0x0a32'5445'4e4e'4546U );
   EXPECT_EQ( Fennet::minRingSize, 65'536U );
   EXPECT_EQ( Fennet::maxRingSize, 1'073'741'824U );
   EXPECT_EQ( Fennet::headerSize, 4096U );
   EXPECT_EQ( Fennet::maxDescriptionsSize, 268'435'456U );
   EXPECT_EQ( Fennet::blockSize, 4096U );
   EXPECT_EQ( Fennet::recordAlignment, 8U );
   EXPECT_EQ( Fennet::cutString, 0x8000 );
   EXPECT_EQ( Fennet::descriptionStrings, 6U );
   EXPECT_EQ( Fennet::maxDescriptionText, 8192U );
   EXPECT_EQ( offsetof( FileHeader, clockPairs ), 128U );
   EXPECT_EQ( offsetof( FileHeader, clocks ), 136U );
   EXPECT_EQ( offsetof( FileHeader, tail ), 192U );
   EXPECT_EQ( sizeof( FileHeader ), 256U );
   EXPECT_EQ( sizeof( Fennet::RecordHead ), 16U );
   EXPECT_EQ( sizeof( Fennet::DescriptionHead ), 16U );
}

// See tests/fuzz/README.md for how to renew a seed, and for what it leaves out.
TEST( TheFormatOfTraceFiles, isTheOneOfTheSeedsThatTheFuzzerStartsFrom ) {
   const std::string seed = contentOf( SEEDS "/thread-1" );
   std::string bytes = seed.substr( 0, 512 );
   bytes.resize( Fennet::headerSize );
   bytes += seed.substr( 512, 512 );
   bytes.resize( Fennet::headerSize + Fennet::minRingSize );
   const TraceFolder folder;
   const std::filesystem::path file = folder.path() / "seed.fennet";
   std::ofstream( file ) << bytes << seed.substr( 1024 );
   // The seeds come from a machine with this byte order.
   if constexpr( std::endian::native == std::endian::little ) {
      EXPECT_EQ( folder.texts(), ( Texts{ "zero", "five", "six", "eight" } ) );
   } else {
      EXPECT_THAT(
         [&] { Fennet::TraceReader( Fennet::bytesOf( file ) ).refresh(); },
         testing::ThrowsMessage< Fennet::Damage >(
            "at byte 0: this is no trace file of a machine like this one" ) );
   }
}

template< typename Value >
std::string bytesOf( const Value& value ) {
   return { reinterpret_cast< const char* >( &value ), sizeof value };
}

// The text as its length and its characters.
std::string sized( const std::string& text ) {
   return bytesOf( static_cast< std::uint16_t >( text.size() ) ) + text;
}

TEST( TheFormatOfTraceFiles, hasNoGaps ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   std::atomic< int > msgId = 4711;
   const Tessel::TracePoint point{ "a.cpp", 7, "f", "{} {}", 8, traceFacility, msgId };
   scripted.clocks = { second, {} };
   point.trace( "text", true );
   scripted = {};
   const std::string file = contentOf( folder.files().at( 0 ) );
   EXPECT_EQ(
      file.substr( Fennet::headerSize, 23 ),
      bytesOf( Fennet::RecordHead{ 23, 4711, second } ) + sized( "text" ) + '\1' );
   EXPECT_EQ(
      file.substr( Fennet::headerSize + Fennet::minRingSize ),
      bytesOf( Fennet::DescriptionHead{ 55, 4711, 7, 8 } ) + sized( "a.cpp" ) + sized( "p b" ) +
         sized( "" ) + sized( "f" ) + sized( "{} {}" ) + sized( "TraceFileTest" ) );
}

class ATraceFile : public testing::Test {
 protected:
   std::unique_ptr< TraceFile > create() const {
      return TraceFile::create( folder.path(), Fennet::minRingSize );
   }

   static std::string bootId() {
      std::string id;
      std::ifstream( "/proc/sys/kernel/random/boot_id" ) >> id;
      return id;
   }

   TraceFolder folder;
};

TEST_F( ATraceFile, saysWhoWritesItAndOnWhichBoot ) {
   const auto file = create();
   const auto header = folder.header();
   EXPECT_EQ( header->magic, Fennet::fileMagic );
   EXPECT_EQ( header->ringSize, Fennet::minRingSize );
   EXPECT_EQ( header->pid, getpid() );
   EXPECT_EQ( header->tid, gettid() );
   EXPECT_EQ( header->program, std::string( program_invocation_short_name ) );
   EXPECT_EQ( header->bootId, bootId() );
}

TEST_F( ATraceFile, keepsTheStartOfALongName ) {
   std::string name( 100, 'n' );
   char* const before = std::exchange( program_invocation_short_name, name.data() );
   const auto file = create();
   program_invocation_short_name = before;
   EXPECT_EQ( folder.header()->program, std::string( 63, 'n' ) );
}

TEST_F( ATraceFile, isClosedAtItsEnd ) {
   const OpenFiles before;
   for( int round = 0; round < 2; ++round ) {
      const auto file = create();
      EXPECT_NE( OpenFiles(), before );
   }
   EXPECT_EQ( OpenFiles(), before );
}

// Whatever another program writes to a file, its own process only writes it and never reads it.
TEST_F( ATraceFile, doesNotMindAnotherWriter ) {
   EXPECT_EQ(
      statusOf( [&] {
         const DefaultHandle handle( folder );
         std::thread( [&] {
            const auto traceLong = []( int number ) {
               TRACE( 8, "{} {}", std::string( 1000, 'x' ), number );
            };
            for( int number = 0; number < 1000; ++number ) {
               traceLong( number );
               if( number % 10 == 0 ) {
                  const auto path = folder.files().at( 0 );
                  const auto size =
                     static_cast< std::size_t >( std::filesystem::file_size( path ) );
                  const std::string bytes( size, '\xff' );
                  std::fstream( path ) << bytes;
               }
            }
            TRACE( 8, "described later" );
         } ).join();
      } ),
      0 );
}

// The standard streams that a program has closed; others may be open.
class AClosedStandardStream : public ATraceFile,
                              public testing::WithParamInterface< std::vector< int > > {};

TEST_P( AClosedStandardStream, isNotWhereATraceFileIsOpened ) {
   EXPECT_EQ(
      statusOf( [&] {
         const DefaultHandle handle( folder );
         for( const int stream : GetParam() ) {
            close( stream );
         }
         close_range( 3, ~0U, 0 ); // so that the file's descriptor is known
         std::thread( [&] {
            TRACE( 8, "first" );
            EXPECT_EQ( std::filesystem::read_symlink( "/proc/self/fd/3" ), folder.files().at( 0 ) );
            const std::string bytes( 5000, '\xff' );
            for( const int stream : GetParam() ) {
               if( write( stream, bytes.data(), bytes.size() ) != -1 ) {
                  _exit( 1 );
               }
            }
            TRACE( 8, "second" );
         } ).join();
      } ),
      0 );
   EXPECT_EQ( folder.texts(), ( Texts{ "first", "second" } ) );
   EXPECT_EQ( folder.header()->bootId, bootId() );
}

TEST_F( ATraceFile, isNotLeftBehindWhenThereIsNoOtherDescriptor ) {
   const std::string said = stderrOf( [&] {
      const DefaultHandle handle( folder );
      close( STDIN_FILENO );
      close( STDOUT_FILENO ); // The address sanitizer needs two descriptors now and then.
      rlimit limit{};
      getrlimit( RLIMIT_NOFILE, &limit );
      const rlim_t before = std::exchange( limit.rlim_cur, 3 );
      setrlimit( RLIMIT_NOFILE, &limit );
      TRACE( 8, "text" );
      limit.rlim_cur = before;
      setrlimit( RLIMIT_NOFILE, &limit );
   } );
   EXPECT_EQ(
      said, "Fennet: cannot create a trace file in \"" + folder.path().string() +
               "\": Invalid argument; the thread leaves no records\n" );
   EXPECT_TRUE( folder.files().empty() );
}

INSTANTIATE_TEST_SUITE_P(
   , AClosedStandardStream,
   testing::Values(
      std::vector{ 0 }, std::vector{ 1 }, std::vector{ 2 }, std::vector{ 0, 1, 2 } ) );

class AClock : public testing::Test {
 protected:
   AClock() { scripted.clocks.emplace(); }
   ~AClock() override { scripted = {}; }

   static void clocksAre( std::int64_t monotonic, timespec realtime ) {
      scripted.clocks = { monotonic, realtime };
   }
   static std::string timeOfALine( std::time_t seconds, long nanoseconds ) {
      clocksAre( 0, { seconds, nanoseconds } );
      traceFacility.levelsIs( Orl::allTraceLevels );
      testing::internal::CaptureStderr();
      TRACE( 8, "" );
      traceFacility.levelsIs( 0 );
      const std::string line = testing::internal::GetCapturedStderr();
      return line.substr( 0, line.find( ' ' ) );
   }
};

TEST_F( AClock, isShownInLinesToTheMicrosecond ) {
   constexpr std::time_t day = 86'400;
   EXPECT_EQ( timeOfALine( 0, 999 ), "1970-01-01T00:00:00.000000Z" );
   EXPECT_EQ( timeOfALine( 1, 1'000 ), "1970-01-01T00:00:01.000001Z" );
   EXPECT_EQ( timeOfALine( 61, 99'999 ), "1970-01-01T00:01:01.000099Z" );
   EXPECT_EQ( timeOfALine( 3'600, 10'000'000 ), "1970-01-01T01:00:00.010000Z" );
   EXPECT_EQ( timeOfALine( day, 123'456'789 ), "1970-01-02T00:00:00.123456Z" );
   EXPECT_EQ( timeOfALine( 365 * day, 999'999'999 ), "1971-01-01T00:00:00.999999Z" );
}

TEST_F( AClock, isItsOwnForEachFileWhoseBootIsUnknown ) {
   const TraceFolder folder;
   const auto traceAt = [&]( std::int64_t monotonic, timespec realtime ) {
      const DefaultHandle handle( folder );
      scripted.openOfTheBootId = 1;
      clocksAre( monotonic, realtime );
      TRACE( 8, "" );
   };
   traceAt( 1000 * second, { 1'000'000'000, 0 } );
   traceAt( 5 * second, { 2'000'000'000, 0 } );
   const auto records = folder.records();
   EXPECT_EQ( records.at( 0 ).time, 1'000'000'000 * second );
   EXPECT_EQ( records.at( 1 ).time, 2'000'000'000 * second );
}

TEST_F( AClock, isReadForAFileAtTheBeginningOfEachBlock ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   const auto traceAt = []( std::int64_t monotonic, timespec realtime ) {
      clocksAre( monotonic, realtime );
      TRACE( 8, "" );
   };
   traceAt( second, { 1'000'000'000, 7 } );
   EXPECT_EQ( folder.header()->clockPairs, 1U );
   EXPECT_EQ( folder.header()->clocks[1].monotonic, second );
   EXPECT_EQ( folder.header()->clocks[1].realtime, 1'000'000'000 * second + 7 );
   EXPECT_EQ( folder.records().at( 0 ).time, 1'000'000'000 * second + 7 );
   // 16 bytes each.
   for( std::size_t record = 1; record < Fennet::blockSize / 16; ++record ) {
      traceAt( 2 * second, { 2'000'000'000, 0 } );
   }
   EXPECT_EQ( folder.header()->clockPairs, 1U );
   traceAt( 3 * second, { 2'000'000'000, 0 } );
   const auto header = folder.header();
   EXPECT_EQ( header->end, Fennet::blockSize + 16 );
   EXPECT_EQ( header->clockPairs, 2U );
   EXPECT_EQ( header->clocks[0].monotonic, 3 * second );
   EXPECT_EQ( header->clocks[0].realtime, 2'000'000'000 * second );
   EXPECT_EQ( header->clocks[1].monotonic, second );
   // The latest pair applies to all records.
   EXPECT_EQ( folder.records().at( 0 ).time, 1'999'999'998 * second );
}

} // namespace
} // namespace SodrelTest
