// Reading trace files: damaged ones, ones that are still written, and several as one.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <fennet/Output.h>
#include <fennet/TraceReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace SodrelTest {
namespace {

using Fennet::FileHeader;
using Fennet::TraceReader;

TRACE_FACILITY( "TraceReaderTest" );

// Reads a file; its damage is the last text, after "damage ".
Texts textsOf( TraceReader& reader ) {
   Texts texts;
   try {
      reader.read( [&]( const Fennet::Record& record ) { texts.push_back( textOf( record ) ); } );
   } catch( const Fennet::Damage& damage ) {
      texts.push_back( std::string( "damage " ) + damage.what() );
   }
   return texts;
}

// Copies up to `size` bytes starting at `offset`; returns how many there were.
std::size_t copyOf( const std::string& bytes, std::uint64_t offset, char* to, std::size_t size ) {
   return offset < bytes.size() ? bytes.copy( to, size, static_cast< std::size_t >( offset ) ) : 0;
}

Texts textsOf( const std::string& bytes ) {
   TraceReader reader( [&]( std::uint64_t offset, char* to, std::size_t size ) {
      return copyOf( bytes, offset, to, size );
   } );
   return textsOf( reader );
}

// A file with two records, and a change to it.
class ADamagedFile : public testing::Test {
 protected:
   ADamagedFile() {
      const TraceFolder folder;
      {
         const DefaultHandle handle( folder );
         TRACE( 8, "{} {}", "first", true );
         TRACE( 8, "{}", 2 );
      }
      bytes = contentOf( folder.files().at( 0 ) );
   }

   template< typename Value >
   void valueIs( std::size_t place, Value value ) {
      std::memcpy( bytes.data() + place, &value, sizeof value );
   }
   // What is read with the value at the place; restores the file afterwards.
   template< typename Value >
   Texts textsWith( std::size_t place, Value value ) {
      const std::string before = bytes;
      valueIs( place, value );
      const Texts texts = textsOf( bytes );
      bytes = before;
      return texts;
   }

   static constexpr std::size_t records = Fennet::headerSize;
   static constexpr std::size_t descriptions = records + Fennet::minRingSize;
   std::string bytes;
};

TEST_F( ADamagedFile, isReadWholeBeforeAnyDamage ) {
   EXPECT_EQ( textsOf( bytes ), ( Texts{ "first true", "2" } ) );
}

TEST_F( ADamagedFile, holdsNothingBeforeItsMagicIsStored ) {
   EXPECT_EQ( textsWith( 0, std::uint64_t{} ), Texts{} );
   EXPECT_EQ( textsOf( "" ), Texts{} );
   EXPECT_EQ(
      textsWith( 0, 'X' ),
      Texts{ "damage at byte 0: this is no trace file of a machine like this one" } );
}

TEST_F( ADamagedFile, mayHaveImpossibleSizes ) {
   for( const std::uint32_t size : { 0U, 100U, 65537U, ~0U } ) {
      EXPECT_EQ(
         textsWith( offsetof( FileHeader, headerSize ), size ),
         Texts{ "damage at byte 8: invalid header size" } );
   }
   for( const std::uint32_t size : { 0U, 4096U, Fennet::minRingSize + 8, 1U << 31, ~0U } ) {
      EXPECT_EQ(
         textsWith( offsetof( FileHeader, ringSize ), size ),
         Texts{ "damage at byte 12: invalid ring size" } );
   }
   for( const std::uint64_t size :
        { std::uint64_t{ Fennet::maxDescriptionsSize } + 1, ~std::uint64_t{} } ) {
      EXPECT_EQ(
         textsWith( offsetof( FileHeader, descriptionsSize ), size ),
         Texts{ "damage at byte 208: invalid size of the descriptions" } );
   }
   for( const std::uint32_t size : { 0U, 15U, 4097U, ~0U } ) {
      EXPECT_EQ(
         textsWith( records, size ),
         Texts{ "damage at byte 4096: a record has an impossible size" } );
   }
   for( const std::uint32_t size : { 0U, 15U, 1000U, 100'000U, ~0U } ) {
      EXPECT_EQ(
         textsWith( descriptions, size ),
         Texts{ "damage at byte 69632: a description has an impossible size" } );
   }
}

TEST_F( ADamagedFile, mayHaveRecordsOutsideItsRing ) {
   using Positions = std::array< std::uint64_t, 2 >; // tail and end
   for( const Positions positions :
        { Positions{ 8, 0 }, Positions{ 0, Fennet::minRingSize + 8 }, Positions{ 0, 12 },
          Positions{ 8, 16 }, Positions{ ~0ULL - 7, 8 }, Positions{ ~0ULL - 63, ~0ULL - 7 } } ) {
      EXPECT_EQ(
         textsWith( offsetof( FileHeader, tail ), positions ),
         Texts{ "damage at byte 192: inconsistent positions" } );
   }
}

TEST_F( ADamagedFile, givesTheRecordsBeforeTheDamage ) {
   EXPECT_EQ(
      textsWith( records + 24, 0U ),
      ( Texts{ "first true", "damage at byte 4120: a record has an impossible size" } ) );
   // The last record extends beyond the end.
   EXPECT_EQ(
      textsWith( records + 24, 4000U ),
      ( Texts{ "first true", "damage at byte 4120: a record has an impossible size" } ) );
}

TEST_F( ADamagedFile, mayHaveARecordThatIsNotAsDescribed ) {
   EXPECT_EQ(
      textsWith( records + 4, 4711 ),
      Texts{ "damage at byte 4096: a record has the unknown message id 4711" } );
   EXPECT_EQ(
      textsWith( records, 17U ), Texts{ "damage at byte 4096: a record ends within an argument" } );
   EXPECT_EQ(
      textsWith( records, 18U ), Texts{ "damage at byte 4096: a record ends within an argument" } );
   EXPECT_EQ(
      textsWith( records + 24, 19U ),
      ( Texts{ "first true", "damage at byte 4120: a record ends within an argument" } ) );
   valueIs( records, 25U );
   EXPECT_EQ(
      textsOf( bytes ), Texts{ "damage at byte 4096: a record is longer than its arguments" } );
}

TEST_F( ADamagedFile, mayLackItsDescriptions ) {
   bytes.resize( descriptions );
   EXPECT_EQ( textsOf( bytes ), Texts{ "damage at byte 69632: the file is too short" } );
}

TEST_F( ADamagedFile, mayHaveAnImpossibleDescription ) {
   EXPECT_EQ(
      textsWith( descriptions + 4, -1 ),
      Texts{ "damage at byte 69632: a description has an impossible id" } );
   EXPECT_EQ(
      textsWith( descriptions + sizeof( Fennet::DescriptionHead ), std::uint16_t{ 60'000 } ),
      Texts{ "damage at byte 69632: a description ends within its texts" } );
   EXPECT_EQ(
      textsWith( descriptions, std::uint32_t{ sizeof( Fennet::DescriptionHead ) } ),
      Texts{ "damage at byte 69632: a description ends within its texts" } );
   EXPECT_EQ(
      textsWith( bytes.find( "p b", descriptions ), 'q' ),
      Texts{ "damage at byte 69632: a description has an unknown argument code" } );
   for( const char* format : { "{} {:", "{} ab", "{}}{}", "{0}{1" } ) {
      std::array< char, 5 > text{};
      std::copy_n( format, 5, text.begin() );
      EXPECT_EQ(
         textsWith( bytes.find( "{} {}", descriptions ), text ),
         Texts{ "damage at byte 69632: a description's format does not fit its arguments" } );
   }
}

TEST_F( ADamagedFile, isReadOrRefusedWhereverItEnds ) {
   for( std::size_t size = 1; size < bytes.size();
        size += size < 700 || size > 69'000 ? 1 : 1001 ) {
      const Texts texts = textsOf( bytes.substr( 0, size ) );
      if( size >= sizeof( std::uint64_t ) ) {
         ASSERT_THAT( texts.back(), testing::StartsWith( "damage at byte " ) ) << size;
      }
   }
}

TEST_F( ADamagedFile, isReadOrRefusedWhateverItsBytesHold ) {
   // The bytes that matter: the header, the records and the descriptions.
   std::vector< std::size_t > places;
   for( std::size_t place = 0; place < bytes.size(); ++place ) {
      if( place < sizeof( FileHeader ) || ( place >= records && place < records + 64 ) ||
          place >= descriptions ) {
         places.push_back( place );
      }
   }
   for( const std::size_t place : places ) {
      for( const int change : { 0x01, 0x80, 0xff } ) {
         ASSERT_LE( textsWith( place, static_cast< char >( bytes[place] ^ change ) ).size(), 3U );
      }
   }
   // Several at once, 1 << 20 in total.
   std::mt19937 random( 1 );
   const std::string before = bytes;
   for( std::size_t changes = 0; changes < 1 << 20; ) {
      bytes = before;
      for( std::size_t more = random() % 256; more > 0; --more, ++changes ) {
         // Half of the rounds leave the header intact, because damage to it hides the rest.
         bytes[places[random() % places.size()]] = static_cast< char >( random() );
      }
      if( random() % 2 == 0 ) {
         bytes.replace( 0, sizeof( FileHeader ), before, 0, sizeof( FileHeader ) );
      }
      ASSERT_LE( textsOf( bytes ).size(), 6U );
   }
}

// Reads a file that claims much and holds little; returns how many bytes it requests in total.
std::size_t bytesReadOf( const std::string& bytes ) {
   std::size_t total = 0;
   TraceReader reader( [&]( std::uint64_t offset, char* to, std::size_t size ) {
      EXPECT_LE( size, std::size_t{ 64 << 10 } );
      total += size;
      std::fill_n( to, size, '\0' ); // a hole
      copyOf( bytes, offset, to, size );
      return size;
   } );
   textsOf( reader );
   return total;
}

TEST_F( ADamagedFile, costsNoMemoryForHoles ) {
   valueIs( offsetof( FileHeader, ringSize ), Fennet::maxRingSize );
   valueIs( offsetof( FileHeader, end ), std::uint64_t{ Fennet::maxRingSize } );
   valueIs( offsetof( FileHeader, descriptionsSize ), Fennet::maxDescriptionsSize );
   EXPECT_LE( bytesReadOf( bytes ), std::size_t{ 128 << 10 } );
}

class ALivingFile : public testing::Test {
 protected:
   TraceReader reader() const { return TraceReader( Fennet::bytesOf( folder.files().at( 0 ) ) ); }

   TraceFolder folder;
   DefaultHandle handle{ folder };
};

TEST_F( ALivingFile, givesEachRecordOnce ) {
   const auto trace = []( int number ) { TRACE( 8, "{}", number ); };
   trace( 1 );
   TraceReader file = reader();
   EXPECT_EQ( textsOf( file ), Texts{ "1" } );
   EXPECT_EQ( textsOf( file ), Texts{} );
   trace( 2 );
   TRACE( 8, "described later" );
   EXPECT_EQ( textsOf( file ), ( Texts{ "2", "described later" } ) );
   for( int number = 3; number < 20'000; ++number ) {
      trace( number );
   }
   const Texts texts = textsOf( file );
   EXPECT_LT( texts.size(), 10'000U );
   EXPECT_EQ( texts.back(), "19999" );
}

TEST_F( ALivingFile, leavesOutWhatIsOverwrittenWhileItIsRead ) {
   const auto trace = []( int number ) { TRACE( 8, "{}", number ); };
   for( int number = 0; number < 2000; ++number ) {
      trace( number );
   }
   TraceReader file = reader();
   file.refresh();
   EXPECT_EQ( std::get< std::int64_t >( file.next()->arguments.at( 0 ) ), 0 );
   for( int number = 2000; number < 4000; ++number ) {
      trace( number );
   }
   // Records that were read before come first, then those that are still there.
   std::int64_t last = 0;
   std::int64_t leftOut = 0;
   while( const auto record = file.next() ) {
      const auto number = std::get< std::int64_t >( record->arguments.at( 0 ) );
      leftOut += number - last - 1;
      last = number;
   }
   EXPECT_GT( leftOut, 0 );
   EXPECT_EQ( last, 1999 );
   EXPECT_EQ( textsOf( file ).size(), 2000U );
}

TEST_F( ALivingFile, mustNotGoBackwards ) {
   TRACE( 8, "text" );
   TraceReader file = reader();
   EXPECT_EQ( textsOf( file ), Texts{ "text" } );
   const auto header = folder.header();
   std::fstream stream( folder.files().at( 0 ) );
   const auto valueIs = [&]( std::size_t place, std::uint64_t value, std::streamsize size ) {
      stream.seekp( static_cast< std::streamoff >( place ) );
      stream.write( reinterpret_cast< const char* >( &value ), size ).flush();
   };
   valueIs( offsetof( FileHeader, end ), 0, 8 );
   EXPECT_EQ( textsOf( file ), Texts{ "damage at byte 200: end moved backwards" } );
   valueIs( offsetof( FileHeader, ringSize ), Fennet::minRingSize * 2, 4 );
   EXPECT_EQ( textsOf( file ), Texts{ "damage at byte 12: invalid ring size" } );
}

TEST_F( ALivingFile, isReadWithoutTornRecordsWhileItsThreadWrites ) {
   std::atomic< bool > begun = false;
   std::atomic< bool > enough = false;
   const auto textOf = []( std::uint64_t number ) {
      const auto size = static_cast< std::size_t >( number % 211 );
      return std::string( size, static_cast< char >( 'a' + number % 26 ) );
   };
   std::thread writer( [&] {
      for( std::uint64_t number = 0; !enough; ++number ) {
         TRACE( 8, "{} {}", number, textOf( number ) );
         begun = true;
      }
   } );
   while( !begun ) {
      std::this_thread::yield();
   }
   TraceReader file = reader();
   std::uint64_t next = 0;
   int records = 0;
   for( int reads = 0; reads < 200 || records < 10'000; ++reads ) {
      ASSERT_NO_THROW( file.read( [&]( const Fennet::Record& record ) {
         const auto number = std::get< std::uint64_t >( record.arguments.at( 0 ) );
         EXPECT_GE( number, next );
         EXPECT_EQ( std::get< std::string >( record.arguments.at( 1 ) ), textOf( number ) );
         next = number + 1;
         ++records;
      } ) );
   }
   enough = true;
   writer.join();
}

TEST( SeveralFiles, areReadAsOneAndADamagedOneIsNamed ) {
   const TraceFolder folder;
   const TraceFolder missing;
   std::filesystem::remove( missing.path() );
   {
      const DefaultHandle handle( folder );
      TRACE( 8, "one" );
      std::thread( [] { TRACE( 8, "two" ); } ).join();
      TRACE( 8, "three" );
   }
   std::ofstream( folder.path() / "x.fennet" ) << "something else";
   std::ofstream( folder.path() / "ignored" ) << "something else";
   std::filesystem::create_directory( folder.path() / "y.fennet" );
   Texts complaints;
   Fennet::TraceSet traces(
      [&]( const std::string& complaint ) { complaints.push_back( complaint ); } );
   traces.add( folder.path() );
   traces.add( missing.path() );
   Texts texts;
   for( int time = 0; time < 2; ++time ) {
      traces.read(
         [&]( const Fennet::TimedRecord& record ) { texts.push_back( textOf( record.record ) ); } );
   }
   EXPECT_EQ( texts, ( Texts{ "one", "two", "three" } ) );
   EXPECT_EQ(
      complaints, ( Texts{ missing.path().string() + ": No such file or directory",
                           ( folder.path() / "x.fennet" ).string() +
                              ": at byte 0: this is no trace file of a machine like this one",
                           ( folder.path() / "y.fennet" ).string() + ": Is a directory" } ) );
}

} // namespace
} // namespace SodrelTest
