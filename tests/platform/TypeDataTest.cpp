// Type data: what a module's record holds, and how types and members are found.
#include "Instruments.h"

#include <platform/types/Module.h>
#include <platform/types/TypeData.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Tessel {

static bool operator==( const ParamDesc& left, const ParamDesc& right ) {
   return left.name == right.name && left.type == right.type;
}

static void PrintTo( const ParamDesc& param, std::ostream* out ) {
   *out << param.name << " of type " << static_cast< int >( param.type );
}

} // namespace Tessel

using Tessel::findType;
using Tessel::MemberDesc;
using Tessel::MemberKind;
using Tessel::memberOf;
using Tessel::ParamDesc;
using Tessel::TypeDesc;
using Tessel::TypeRef;
using Tessel::ValueType;
using testing::ElementsAre;

namespace {

constexpr TypeRef instrumentType{ &instrumentsModule, 0 };
constexpr TypeRef gaugeType{ &instrumentsModule, 1 };

std::span< const ParamDesc > paramsOf( const auto& desc ) {
   return instrumentsModule.params.subspan( desc.firstParam, desc.paramCount );
}

std::span< const MemberDesc > membersOf( const TypeDesc& type ) {
   return instrumentsModule.members.subspan( type.firstMember, type.memberCount );
}

std::vector< std::string_view > namesOf( std::span< const MemberDesc > members ) {
   std::vector< std::string_view > names;
   for( const MemberDesc& member : members ) {
      names.push_back( member.name );
   }
   return names;
}

} // namespace

TEST( AModule, countsItsTypesInItsWord ) {
   EXPECT_EQ( instrumentsModule.word, 0x00010002U );
}

TEST( AModule, describesEachTypeInOrder ) {
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

TEST( AModule, hasTheMembersOfEachTypeInTheOrderOfTheirIds ) {
   EXPECT_THAT(
      namesOf( membersOf( instrumentsModule.types[0] ) ),
      ElementsAre(
         "on", "serial", "offset", "period", "label", "wire", "describe", "reset", "labelIs",
         "difference", "joined", "allIs", "note", "measure" ) );
   EXPECT_THAT(
      namesOf( membersOf( instrumentsModule.types[1] ) ),
      ElementsAre(
         "unit", "peer", "serial", "peerIs", "fail", "secretly", "handleInitialized",
         "handleDeleted" ) );
   EXPECT_EQ( instrumentsModule.members.size(), 14U + 8U );
   for( const TypeDesc& type : instrumentsModule.types ) {
      std::uint32_t id = 0;
      for( const MemberDesc& member : membersOf( type ) ) {
         EXPECT_EQ( member.id, id++ ) << member.name;
      }
   }
}

TEST( AModule, sortsTheNamesOfItsTypes ) {
   EXPECT_THAT(
      instrumentsModule.typeNames, ElementsAre( "SodrelTest::Gauge", "SodrelTest::Instrument" ) );
}

TEST( AModule, sortsTheNamesThatAreOpenToEverybodyEachOnce ) {
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

TEST( AModule, hasNoMoreParametersThanItsMembers ) {
   std::size_t count = 0;
   for( const TypeDesc& type : instrumentsModule.types ) {
      count += type.paramCount;
   }
   for( const MemberDesc& member : instrumentsModule.members ) {
      count += member.paramCount;
   }
   EXPECT_EQ( instrumentsModule.params.size(), count );
   EXPECT_EQ( count, 3U + 1U + 2U + 3U + 4U + 1U + 1U + 1U );
}

class AnAttribute : public testing::Test {
 protected:
   static void expect( const char* name, ValueType type ) {
      const MemberDesc& desc = memberOf( instrumentType, name ).desc();
      EXPECT_EQ( desc.kind, MemberKind::attribute ) << name;
      EXPECT_EQ( desc.type, type ) << name;
      EXPECT_EQ( desc.paramCount, 0U ) << name;
      EXPECT_EQ( desc.typeRef, Tessel::noTypeRef ) << name;
   }
};

TEST_F( AnAttribute, hasTheValueTypeOfItsField ) {
   expect( "on", ValueType::boolean );
   expect( "serial", ValueType::u32 );
   expect( "offset", ValueType::s32 );
   expect( "period", ValueType::duration );
   expect( "label", ValueType::string );
   expect( "wire", ValueType::voidPtr );
}

TEST_F( AnAttribute, namesTheTypeOfItsEntity ) {
   const MemberDesc& peer = memberOf( gaugeType, "peer" ).desc();
   EXPECT_EQ( peer.kind, MemberKind::attribute );
   EXPECT_EQ( peer.type, ValueType::entity );
   EXPECT_TRUE( instrumentsModule.typeRefs[peer.typeRef] == gaugeType );
}

class AnOperation : public testing::Test {
 protected:
   static const MemberDesc& desc( TypeRef type, const char* name ) {
      const MemberDesc& found = memberOf( type, name ).desc();
      EXPECT_EQ( found.kind, MemberKind::operation );
      return found;
   }
};

TEST_F( AnOperation, hasTheTypeOfItsResult ) {
   EXPECT_EQ( desc( instrumentType, "reset" ).type, ValueType::none );
   EXPECT_EQ( desc( instrumentType, "labelIs" ).type, ValueType::boolean );
   EXPECT_EQ( desc( instrumentType, "measure" ).type, ValueType::u32 );
   EXPECT_EQ( desc( instrumentType, "difference" ).type, ValueType::s32 );
   EXPECT_EQ( desc( instrumentType, "describe" ).type, ValueType::string );
   EXPECT_EQ( desc( instrumentType, "describe" ).typeRef, Tessel::noTypeRef );
   EXPECT_GE( Tessel::noTypeRef, instrumentsModule.typeRefs.size() );
   EXPECT_EQ( desc( gaugeType, "fail" ).type, ValueType::voidPtr );
   EXPECT_EQ( desc( gaugeType, "secretly" ).type, ValueType::boolean );
}

TEST_F( AnOperation, namesTheTypeOfTheEntityItReturns ) {
   const MemberDesc& peerIs = desc( gaugeType, "peerIs" );
   EXPECT_EQ( peerIs.type, ValueType::entity );
   EXPECT_TRUE( instrumentsModule.typeRefs[peerIs.typeRef] == gaugeType );
}

TEST_F( AnOperation, hasItsParametersInOrder ) {
   EXPECT_THAT( paramsOf( desc( instrumentType, "reset" ) ), ElementsAre() );
   EXPECT_THAT(
      paramsOf( desc( instrumentType, "labelIs" ) ),
      ElementsAre( ParamDesc{ "label", ValueType::string } ) );
   EXPECT_THAT(
      paramsOf( desc( instrumentType, "difference" ) ),
      ElementsAre( ParamDesc{ "left", ValueType::s32 }, ParamDesc{ "right", ValueType::s32 } ) );
   EXPECT_THAT(
      paramsOf( desc( instrumentType, "joined" ) ),
      ElementsAre(
         ParamDesc{ "upper", ValueType::boolean }, ParamDesc{ "number", ValueType::u32 },
         ParamDesc{ "text", ValueType::string } ) );
   EXPECT_THAT(
      paramsOf( desc( instrumentType, "allIs" ) ),
      ElementsAre(
         ParamDesc{ "on", ValueType::boolean }, ParamDesc{ "serial", ValueType::u32 },
         ParamDesc{ "period", ValueType::duration }, ParamDesc{ "wire", ValueType::voidPtr } ) );
   EXPECT_THAT(
      paramsOf( desc( instrumentType, "note" ) ),
      ElementsAre( ParamDesc{ "text", ValueType::optionalString } ) );
   EXPECT_THAT(
      paramsOf( desc( gaugeType, "peerIs" ) ),
      ElementsAre( ParamDesc{ "peer", ValueType::entity } ) );
   EXPECT_THAT(
      paramsOf( desc( gaugeType, "secretly" ) ),
      ElementsAre( ParamDesc{ "knock", ValueType::string } ) );
}

TEST( AType, isFoundByItsQualifiedName ) {
   EXPECT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
   EXPECT_TRUE( findType( "SodrelTest::Instrument" ) == instrumentType );
}

TEST( AType, isNotFoundByAnyOtherName ) {
   for( const char* const name : { "", "Gauge", "SodrelTest::Gaug", "SodrelTest::Gauge ",
                                   "SodrelTest", "workshop::gauge", "Tessel::Node", "Zebra" } ) {
      EXPECT_TRUE( findType( name ) == Tessel::nodeType ) << name;
   }
}

TEST( AType, isTheNodeUnlessSaidOtherwise ) {
   EXPECT_EQ( TypeRef().module, nullptr );
   EXPECT_EQ( TypeRef().index, 0U );
}

TEST( AType, isAnotherThanItsModulesOtherTypes ) {
   EXPECT_FALSE( findType( "SodrelTest::Gauge" ) == findType( "SodrelTest::Instrument" ) );
}

TEST( AType, hasABaseUpToTheNode ) {
   EXPECT_TRUE( baseOf( gaugeType ) == instrumentType );
   EXPECT_TRUE( baseOf( instrumentType ) == Tessel::nodeType );
   EXPECT_TRUE( baseOf( Tessel::nodeType ) == Tessel::nodeType );
}

TEST( AType, isSaidByItsEntitiesAlsoThroughTheirBase ) {
   const Tessel::Ptr< Tessel::Node > node = SodrelTest::gaugeFactory( "bar", {} );
   EXPECT_TRUE( node->typeData() == gaugeType );
}

TEST( AMember, isFoundByItsNameInTheTypeThatDeclaresIt ) {
   EXPECT_EQ( memberOf( gaugeType, "serial" ).desc().id, 2U );
   EXPECT_EQ( memberOf( instrumentType, "serial" ).desc().id, 1U );
   EXPECT_FALSE( memberOf( gaugeType, "label" ) );
   EXPECT_FALSE( memberOf( gaugeType, "" ) );
   EXPECT_FALSE( memberOf( Tessel::nodeType, "label" ) );
}

TEST( AMember, isFoundByItsIdInTheTypeThatDeclaresIt ) {
   EXPECT_EQ( memberOf( gaugeType, 2 ).desc().name, "serial" );
   EXPECT_EQ( memberOf( gaugeType, 7 ).desc().name, "handleDeleted" );
   EXPECT_EQ( memberOf( instrumentType, 0 ).desc().name, "on" );
   EXPECT_FALSE( memberOf( gaugeType, 8 ) );
   EXPECT_FALSE( memberOf( gaugeType, 0xffffffff ) );
   EXPECT_FALSE( memberOf( Tessel::nodeType, 0U ) );
}

TEST( AMember, ofALiveEntityComesFromTheNearestTypeThatHasIt ) {
   const auto gauge = SodrelTest::gaugeFactory( "bar", {} );
   EXPECT_EQ( memberOf( *gauge, "serial" ).desc().id, 2U );
   EXPECT_EQ( memberOf( *gauge, "label" ).desc().id, 4U );
   EXPECT_FALSE( memberOf( *gauge, "nothing" ) );
}

TEST( AMember, isEmptyByDefault ) {
   EXPECT_FALSE( Tessel::Member() );
}

class AModuleOfAnotherLibrary : public testing::Test {
 private:
   static constexpr std::array< std::string_view, 1 > names{ "SodrelTest::Shelf" };
   static constexpr std::array types{ TypeDesc{ "SodrelTest::Shelf" } };
   static constexpr std::array refs{ Tessel::nodeType };
   static constexpr std::array hooks{ Tessel::TypeHooks{} };

 protected:
   const Tessel::ModuleInspectData record{ types, {}, {}, names, {}, refs, hooks, 0x00010001 };
};

TEST_F( AModuleOfAnotherLibrary, isKnownWhileItsLibraryIsLoaded ) {
   EXPECT_TRUE( findType( "SodrelTest::Shelf" ) == Tessel::nodeType );
   {
      const Tessel::ModuleRegistration registration( record );
      const TypeRef shelf = findType( "SodrelTest::Shelf" );
      EXPECT_TRUE( ( shelf == TypeRef{ &record, 0 } ) );
      EXPECT_TRUE( baseOf( shelf ) == Tessel::nodeType );
      EXPECT_FALSE( memberOf( shelf, 0U ) );
      EXPECT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
   }
   EXPECT_TRUE( findType( "SodrelTest::Shelf" ) == Tessel::nodeType );
   EXPECT_TRUE( findType( "SodrelTest::Gauge" ) == gaugeType );
}

TEST_F( AModuleOfAnotherLibrary, mayBeLoadedAndForgottenByHand ) {
   record.loaded();
   EXPECT_TRUE( findType( "SodrelTest::Shelf" ).module == &record );
   record.unloaded();
   EXPECT_TRUE( findType( "SodrelTest::Shelf" ) == Tessel::nodeType );
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
      const TypeRef shelf = findType( "SodrelTest::Shelf" );
      ASSERT_TRUE( shelf == Tessel::nodeType || shelf.module == &record );
   }
}
