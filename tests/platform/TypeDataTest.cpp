// Type data: what a module's record holds, and how types and members are found.
#include "Instruments.h"
#include "Process.h"

#include <platform/types/Module.h>
#include <platform/types/TypeData.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <span>
#include <stop_token>
#include <string_view>
#include <thread>
#include <vector>

#include <unistd.h>

namespace Tessel {

static bool operator==( const ParamDesc& left, const ParamDesc& right ) {
   return left.name == right.name && left.type == right.type;
}

static void PrintTo( const ParamDesc& param, std::ostream* out ) {
   *out << param.name << " of type " << static_cast< int >( param.type );
}

} // namespace Tessel

namespace SodrelTest {
namespace {

using Tessel::findType;
using Tessel::MemberDesc;
using Tessel::MemberKind;
using Tessel::memberOf;
using Tessel::ParamDesc;
using Tessel::TypeDesc;
using Tessel::TypeRef;
using Tessel::ValueType;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr TypeRef instrumentType{ &instrumentsModule, 0 };
constexpr TypeRef gaugeType{ &instrumentsModule, 1 };

std::span< const ParamDesc > paramsOf( const auto& desc ) {
   return instrumentsModule.params.subspan( desc.firstParam, desc.paramCount );
}

TEST( AModule, describesEachTypeInOrder ) {
   EXPECT_EQ( instrumentsModule.word, 0x00010002U );
   ASSERT_EQ( instrumentsModule.types.size(), 2U );
   const TypeDesc& instrument = instrumentsModule.types[0];
   EXPECT_EQ( instrument.name, "SodrelTest::Instrument" );
   EXPECT_TRUE( instrumentsModule.typeRefs[instrument.base] == Tessel::nodeType );
   EXPECT_THAT( paramsOf( instrument ), ElementsAre( ParamDesc{ "wire", ValueType::voidPtr } ) );
   const TypeDesc& gauge = instrumentsModule.types[1];
   EXPECT_EQ( gauge.name, "SodrelTest::Gauge" );
   EXPECT_TRUE( instrumentsModule.typeRefs[gauge.base] == instrumentType );
   EXPECT_THAT(
      paramsOf( gauge ), ElementsAre(
                            ParamDesc{ "unit", ValueType::string },
                            ParamDesc{ "maker", ValueType::optionalString } ) );
}

TEST( AModule, describesTheMembersOfEachTypeInTheOrderOfTheirIds ) {
   constexpr MemberKind field = MemberKind::attribute;
   constexpr MemberKind function = MemberKind::operation;
   struct Expected {
      std::string_view name;
      MemberKind kind;
      ValueType type;
      std::vector< ParamDesc > params;
   };
   const std::vector< std::vector< Expected > > expected{
      {
         { "on", field, ValueType::boolean, {} },
         { "serial", field, ValueType::u32, {} },
         { "offset", field, ValueType::s32, {} },
         { "period", field, ValueType::duration, {} },
         { "label", field, ValueType::string, {} },
         { "wire", field, ValueType::voidPtr, {} },
         { "describe", function, ValueType::string, {} },
         { "reset", function, ValueType::none, {} },
         { "labelIs", function, ValueType::boolean, { { "label", ValueType::string } } },
         { "difference",
           function,
           ValueType::s32,
           { { "left", ValueType::s32 }, { "right", ValueType::s32 } } },
         { "joined",
           function,
           ValueType::string,
           { { "upper", ValueType::boolean },
             { "number", ValueType::u32 },
             { "text", ValueType::string } } },
         { "allIs",
           function,
           ValueType::none,
           { { "on", ValueType::boolean },
             { "serial", ValueType::u32 },
             { "period", ValueType::duration },
             { "wire", ValueType::voidPtr } } },
         { "note", function, ValueType::string, { { "text", ValueType::optionalString } } },
         { "measure", function, ValueType::u32, {} },
      },
      {
         { "unit", field, ValueType::string, {} },
         { "peer", field, ValueType::entity, {} },
         { "serial", field, ValueType::u32, {} },
         { "peerIs", function, ValueType::entity, { { "peer", ValueType::entity } } },
         { "fail", function, ValueType::voidPtr, {} },
         { "secretly", function, ValueType::boolean, { { "knock", ValueType::string } } },
         { "handleInitialized", function, ValueType::none, {} },
         { "handleDeleted", function, ValueType::none, {} },
      },
   };
   std::size_t members = 0;
   std::size_t params = 3; // of the constructors
   for( std::size_t type = 0; type < expected.size(); ++type ) {
      const TypeDesc& desc = instrumentsModule.types[type];
      ASSERT_EQ( desc.memberCount, expected[type].size() );
      for( std::uint32_t id = 0; id < desc.memberCount; ++id ) {
         const MemberDesc& member = instrumentsModule.members[desc.firstMember + id];
         const Expected& row = expected[type][id];
         EXPECT_EQ( member.name, row.name );
         EXPECT_EQ( member.id, id ) << row.name;
         EXPECT_EQ( member.kind, row.kind ) << row.name;
         EXPECT_EQ( member.type, row.type ) << row.name;
         EXPECT_THAT( paramsOf( member ), ElementsAreArray( row.params ) ) << row.name;
         if( row.type == ValueType::entity ) {
            EXPECT_TRUE( instrumentsModule.typeRefs[member.typeRef] == gaugeType ) << row.name;
         } else {
            EXPECT_EQ( member.typeRef, Tessel::noTypeRef ) << row.name;
         }
         ++members;
         params += row.params.size();
      }
   }
   EXPECT_EQ( instrumentsModule.members.size(), members );
   EXPECT_EQ( instrumentsModule.params.size(), params );
}

TEST( AModule, sortsTheNamesOfItsTypesAndOfTheirListedMembersEachOnce ) {
   EXPECT_THAT(
      instrumentsModule.typeNames, ElementsAre( "SodrelTest::Gauge", "SodrelTest::Instrument" ) );
   EXPECT_THAT(
      instrumentsModule.memberNames,
      ElementsAre(
         "allIs", "describe", "difference", "fail", "joined", "label", "labelIs", "left", "maker",
         "measure", "note", "number", "offset", "on", "peer", "peerIs", "period", "reset", "right",
         "serial", "text", "unit", "upper", "wire" ) );
}

TEST( AModule, namesEachBaseAndEntityTypeOnce ) {
   EXPECT_THAT(
      instrumentsModule.typeRefs, ElementsAre( Tessel::nodeType, instrumentType, gaugeType ) );
}

TEST( AType, isFoundByItsQualifiedNameOnly ) {
   EXPECT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
   EXPECT_TRUE( findType( "SodrelTest::Instrument" ) == instrumentType );
   EXPECT_FALSE( gaugeType == instrumentType );
   for( const char* const name : { "", "Gauge", "SodrelTest::Gaug", "SodrelTest::Gauge ",
                                   "SodrelTest", "sodreltest::gauge", "Tessel::Node", "Zebra" } ) {
      EXPECT_TRUE( findType( name ) == Tessel::nodeType ) << name;
   }
}

TEST( AType, hasABaseUpToTheNode ) {
   EXPECT_TRUE( baseOf( gaugeType ) == instrumentType );
   EXPECT_TRUE( baseOf( instrumentType ) == Tessel::nodeType );
   EXPECT_TRUE( baseOf( Tessel::nodeType ) == Tessel::nodeType );
   EXPECT_EQ( Tessel::nodeType.module, nullptr );
   EXPECT_EQ( Tessel::nodeType.index, 0U );
}

TEST( AType, isReturnedByItsEntitiesAlsoThroughTheirBase ) {
   const Tessel::Ptr< Tessel::Node > node = gaugeFactory( "bar", {} );
   EXPECT_TRUE( node->typeData() == gaugeType );
}

TEST( AMember, isFoundByNameOrIdInTheTypeThatDeclaresIt ) {
   EXPECT_EQ( memberOf( gaugeType, "serial" ).desc().id, 2U );
   EXPECT_EQ( memberOf( gaugeType, 2 ).desc().name, "serial" );
   EXPECT_EQ( memberOf( gaugeType, 7 ).desc().name, "handleDeleted" );
   EXPECT_EQ( memberOf( instrumentType, "serial" ).desc().id, 1U );
   EXPECT_EQ( memberOf( instrumentType, 0 ).desc().name, "on" );
   for( const char* const name : { "label", "" } ) {
      EXPECT_FALSE( memberOf( gaugeType, name ) ) << name;
      EXPECT_FALSE( memberOf( Tessel::nodeType, name ) ) << name;
   }
   for( const std::uint32_t id : { 8U, 0xffffffffU } ) {
      EXPECT_FALSE( memberOf( gaugeType, id ) ) << id;
   }
   EXPECT_FALSE( memberOf( Tessel::nodeType, 0U ) );
   EXPECT_FALSE( Tessel::Member() );
}

TEST( AMember, ofALiveEntityComesFromTheNearestTypeThatHasIt ) {
   const auto gauge = gaugeFactory( "bar", {} );
   EXPECT_EQ( memberOf( *gauge, "serial" ).desc().id, 2U );
   EXPECT_EQ( memberOf( *gauge, "label" ).desc().id, 4U );
   EXPECT_FALSE( memberOf( *gauge, "nothing" ) );
}

class AModuleOfAnotherLibrary : public testing::Test {
 private:
   static constexpr std::array< std::string_view, 1 > names{ "Depot::Shelf" };
   static constexpr std::array types{ TypeDesc{ "Depot::Shelf" } };
   static constexpr std::array refs{ Tessel::nodeType };
   static constexpr std::array hooks{ Tessel::TypeHooks{} };

 protected:
   const Tessel::ModuleInspectData record{ types, {}, {}, names, {}, refs, hooks, 0x00010001 };
};

TEST_F( AModuleOfAnotherLibrary, isKnownWhileItsLibraryIsLoaded ) {
   EXPECT_TRUE( findType( "Depot::Shelf" ) == Tessel::nodeType );
   {
      const Tessel::ModuleRegistration registration( record );
      const TypeRef shelf = findType( "Depot::Shelf" );
      EXPECT_TRUE( ( shelf == TypeRef{ &record, 0 } ) );
      EXPECT_TRUE( baseOf( shelf ) == Tessel::nodeType );
      EXPECT_FALSE( memberOf( shelf, 0U ) );
      EXPECT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
   }
   EXPECT_TRUE( findType( "Depot::Shelf" ) == Tessel::nodeType );
   record.unloaded();
   EXPECT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
}

TEST_F( AModuleOfAnotherLibrary, comesAndGoesWhileOtherThreadsLookTypesUp ) {
   std::jthread loads( [this] {
      for( int i = 0; i < 2'000; ++i ) {
         const Tessel::ModuleRegistration registration( record );
      }
   } );
   for( int i = 0; i < 2'000; ++i ) {
      ASSERT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
      const TypeRef shelf = findType( "Depot::Shelf" );
      ASSERT_TRUE( shelf == Tessel::nodeType || shelf.module == &record );
   }
}

TEST_F( AModuleOfAnotherLibrary, comesAndGoesWhileAnotherThreadForks ) {
   const std::jthread loads( [this]( const std::stop_token& end ) {
      while( !end.stop_requested() ) {
         const Tessel::ModuleRegistration registration( record );
      }
   } );
   for( int fork = 0; fork < 100; ++fork ) {
      const int status = statusOf( [] {
         alarm( 30 ); // ends a child that is stuck on a lock
         EXPECT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
      } );
      ASSERT_EQ( status, 0 );
   }
}

} // namespace
} // namespace SodrelTest
