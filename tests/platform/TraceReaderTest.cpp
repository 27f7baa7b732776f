// Reading trace files: damaged ones, living ones, and several as one.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <fennet/Output.h>
#include <fennet/TraceReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Fennet::DefaultHandle;
using Fennet::FileHeader;
using Fennet::TraceFolder;
using Fennet::TraceReader;
using Texts = std::vector< std::string >;

TRACE_FACILITY( "TraceReaderTest" );

// Reads the bytes as a file; a file's damage is the last text, after "damage ".
Texts textsOf( const std::string& bytes ) {
   TraceReader reader( [&]( std::uint64_t offset, char* to, std::size_t size ) {
      if( offset >= bytes.size() ) {
         return std::size_t{ 0 };
      }
      return bytes.copy( to, size, offset );
   } );
   Texts texts;
   try {
      reader.read( [&]( const Fennet::Record& record ) { texts.push_back( textOf( record ) ); } );
   } catch( const Fennet::Damage& damage ) {
      texts.push_back( std::string( "damage " ) + damage.what() );
   }
   return texts;
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
      bytes = Fennet::contentOf( folder.files().at( 0 ) );
   }

   template< typename Value >
   void valueIs( std::size_t place, Value value ) {
      std::memcpy( bytes.data() + place, &value, sizeof value );
   }

   static constexpr std::size_t records = 4096;
   static constexpr std::size_t descriptions = records + Fennet::minRingSize;
   std::string bytes;
};

TEST_F( ADamagedFile, isReadWholeBeforeAnyDamage ) {
   EXPECT_EQ( textsOf( bytes ), ( Texts{ "first true", "2" } ) );
}

TEST_F( ADamagedFile, isKnownByItsMagic ) {
   bytes[0] = 'X';
   EXPECT_EQ(
      textsOf( bytes ),
      Texts{ "damage at byte 0: this is no trace file of a machine like this one" } );
}

TEST_F( ADamagedFile, holdsNothingBeforeItsMagicIsStored ) {
   valueIs( 0, std::uint64_t{} );
   EXPECT_EQ( textsOf( bytes ), Texts{} );
   EXPECT_EQ( textsOf( "" ), Texts{} );
}

TEST_F( ADamagedFile, mayHaveAHeaderOfNoPossibleSize ) {
   for( const std::uint32_t size : { 0U, 100U, 65537U, ~0U } ) {
      valueIs( offsetof( FileHeader, headerSize ), size );
      EXPECT_EQ( textsOf( bytes ), Texts{ "damage at byte 8: invalid header size" } );
   }
}

TEST_F( ADamagedFile, mayHaveARingOfNoPossibleSize ) {
   for( const std::uint32_t size : { 0U, 4096U, Fennet::minRingSize + 8, ~0U } ) {
      valueIs( offsetof( FileHeader, ringSize ), size );
      EXPECT_EQ( textsOf( bytes ), Texts{ "damage at byte 12: invalid ring size" } );
   }
}

TEST_F( ADamagedFile, mayHaveRecordsOutsideItsRing ) {
   const std::string place = std::to_string( offsetof( FileHeader, tail ) );
   const std::uint64_t wrong[][2] = {
      { 8, 0 }, { 0, Fennet::minRingSize + 8 }, { 0, 12 }, { 4, 8 }, { ~0ULL - 7, 8 }
   };
   for( const auto& [tail, end] : wrong ) {
      valueIs( offsetof( FileHeader, tail ), tail );
      valueIs( offsetof( FileHeader, end ), end );
      EXPECT_EQ(
         textsOf( bytes ), Texts{ "damage at byte " + place + ": inconsistent positions" } );
   }
}

TEST_F( ADamagedFile, mayHaveARecordOfNoPossibleSize ) {
   for( const std::uint32_t size : { 0U, 15U, 4097U, ~0U } ) {
      valueIs( records, size );
      EXPECT_EQ(
         textsOf( bytes ), Texts{ "damage at byte 4096: a record has an impossible size" } );
   }
}

TEST_F( ADamagedFile, givesTheRecordsBeforeTheDamage ) {
   valueIs( records + 24, 0U );
   EXPECT_EQ(
      textsOf( bytes ),
      ( Texts{ "first true", "damage at byte 4120: a record has an impossible size" } ) );
}

TEST_F( ADamagedFile, mayHaveARecordThatNothingDescribes ) {
   valueIs( records + 4, 4711 );
   EXPECT_EQ(
      textsOf( bytes ), Texts{ "damage at byte 4096: a record has the unknown message id 4711" } );
}

TEST_F( ADamagedFile, mayHaveARecordThatEndsWithinAnArgument ) {
   valueIs( records, 18U );
   EXPECT_EQ( textsOf( bytes ), Texts{ "damage at byte 4096: a record ends within an argument" } );
}

TEST_F( ADamagedFile, mayHaveARecordThatIsLongerThanItsArguments ) {
   valueIs( records, 25U );
   EXPECT_EQ(
      textsOf( bytes ), Texts{ "damage at byte 4096: a record is longer than its arguments" } );
}

TEST_F( ADamagedFile, mayLackItsDescriptions ) {
   bytes.resize( descriptions );
   EXPECT_EQ( textsOf( bytes ), Texts{ "damage at byte 69632: the file is too short" } );
}

TEST_F( ADamagedFile, mayHaveADescriptionOfNoPossibleSize ) {
   for( const std::uint32_t size : { 0U, 15U, 100'000U, ~0U } ) {
      valueIs( descriptions, size );
      EXPECT_EQ(
         textsOf( bytes ), Texts{ "damage at byte 69632: a description has an impossible size" } );
   }
}

TEST_F( ADamagedFile, mayHaveADescriptionOfNoPossibleId ) {
   valueIs( descriptions + 4, -1 );
   EXPECT_EQ(
      textsOf( bytes ), Texts{ "damage at byte 69632: a description has an impossible id" } );
}

TEST_F( ADamagedFile, mayHaveADescriptionWhoseTextsAreLongerThanItself ) {
   valueIs( descriptions + sizeof( Fennet::DescriptionHead ), std::uint16_t{ 60'000 } );
   EXPECT_EQ(
      textsOf( bytes ), Texts{ "damage at byte 69632: a description ends within its texts" } );
}

TEST_F( ADamagedFile, mayHaveAFormatThatDoesNotFit ) {
   for( const std::string_view format : { "{} {:", "{} {:9999d}", "{} ab", "{}}{}", "{0}{1}" } ) {
      std::string damaged = bytes;
      damaged.replace( damaged.find( "{} {}", descriptions ), 5, format.substr( 0, 5 ) );
      EXPECT_EQ(
         textsOf( damaged ),
         Texts{ "damage at byte 69632: a description's format does not fit its arguments" } );
   }
}

TEST_F( ADamagedFile, mayHaveAnArgumentCodeThatNobodyKnows ) {
   bytes[bytes.find( "p b", descriptions )] = 'q';
   EXPECT_EQ(
      textsOf( bytes ),
      Texts{ "damage at byte 69632: a description has an unknown argument code" } );
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

TEST_F( ADamagedFile, isReadOrRefusedWhateverOneByteHolds ) {
   for( std::size_t place = 0; place < bytes.size(); ++place ) {
      if( place == sizeof( FileHeader ) ) {
         place = records;
      }
      if( place == records + 64 ) {
         place = descriptions;
      }
      for( const int change : { 0x01, 0x80, 0xff } ) {
         std::string damaged = bytes;
         damaged[place] = static_cast< char >( damaged[place] ^ change );
         ASSERT_LE( textsOf( damaged ).size(), 3U );
      }
   }
}

TEST( ALivingFile, givesEachRecordOnce ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   const auto trace = []( int number ) { TRACE( 8, "{}", number ); };
   trace( 1 );
   TraceReader reader( Fennet::bytesOf( folder.files().at( 0 ) ) );
   Texts texts;
   const auto read = [&] {
      texts.clear();
      reader.read( [&]( const Fennet::Record& record ) { texts.push_back( textOf( record ) ); } );
      return texts;
   };
   EXPECT_EQ( read(), Texts{ "1" } );
   EXPECT_EQ( read(), Texts{} );
   trace( 2 );
   TRACE( 8, "described later" );
   EXPECT_EQ( read(), ( Texts{ "2", "described later" } ) );
   for( int number = 3; number < 20'000; ++number ) {
      trace( number );
   }
   EXPECT_LT( read().size(), 10'000U );
   EXPECT_EQ( texts.back(), "19999" );
}

TEST( ALivingFile, isReadWithoutTornRecordsWhileItsThreadWrites ) {
   const TraceFolder folder;
   const DefaultHandle handle( folder );
   std::atomic< bool > begun = false;
   std::atomic< bool > enough = false;
   std::thread writer( [&] {
      for( std::uint64_t number = 0; !enough; ++number ) {
         TRACE(
            8, "{} {}", number,
            std::string( number % 211, static_cast< char >( 'a' + number % 26 ) ) );
         begun = true;
      }
   } );
   while( !begun ) {
      std::this_thread::yield();
   }
   TraceReader reader( Fennet::bytesOf( folder.files().at( 0 ) ) );
   std::uint64_t next = 0;
   int records = 0;
   for( int reads = 0; reads < 200 || records < 10'000; ++reads ) {
      ASSERT_NO_THROW( reader.read( [&]( const Fennet::Record& record ) {
         const auto number = std::get< std::uint64_t >( record.arguments.at( 0 ) );
         EXPECT_GE( number, next );
         EXPECT_EQ(
            std::get< std::string >( record.arguments.at( 1 ) ),
            std::string( number % 211, static_cast< char >( 'a' + number % 26 ) ) );
         next = number + 1;
         ++records;
      } ) );
   }
   enough = true;
   writer.join();
}

TEST( SeveralFiles, areReadAsOneAndADamagedOneIsNamed ) {
   const TraceFolder folder;
   {
      const DefaultHandle handle( folder );
      TRACE( 8, "one" );
      std::thread( [] { TRACE( 8, "two" ); } ).join();
   }
   std::ofstream( folder.path() / "x.fennet" ) << "something else";
   std::ofstream( folder.path() / "ignored" ) << "something else";
   Texts complaints;
   Fennet::TraceSet traces(
      [&]( const std::string& complaint ) { complaints.push_back( complaint ); } );
   traces.add( folder.path() );
   traces.add( folder.path() / "missing" );
   EXPECT_EQ( traces.read().size(), 2U );
   EXPECT_EQ( traces.read().size(), 0U );
   EXPECT_EQ(
      complaints, ( Texts{ ( folder.path() / "missing" ).string() + ": No such file or directory",
                           ( folder.path() / "x.fennet" ).string() +
                              ": at byte 0: this is no trace file of a machine like this one" } ) );
}

} // namespace
