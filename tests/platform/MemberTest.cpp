// Generic access: reading, writing and calling members of live entities, and creating entities.
#include "Instruments.h"

#include <platform/memory/AllocTrack.h>
#include <platform/types/TypeData.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace SodrelTest {
namespace {

using Orl::VoidPtr;
using Tessel::accessDone;
using Tessel::accessRefused;
using Tessel::accessUnknownMember;
using Tessel::HideMe;
using Tessel::Interval;
using Tessel::Member;
using Tessel::Ptr;
using Tessel::String;

using Addresses = std::vector< const void* >;

class AccessToAGauge : public testing::Test {
 protected:
   [[nodiscard]] Member member( std::string_view name ) const {
      const Member found = Tessel::memberOf( *gauge, name );
      EXPECT_TRUE( found ) << name;
      return found;
   }
   // Writes a value and reads it back.
   template< typename T >
   void expectToKeep( const char* name, T value, T other ) const {
      EXPECT_EQ( member( name ).write( *gauge, &value ), accessDone ) << name;
      EXPECT_EQ( member( name ).read( *gauge, &other ), accessDone ) << name;
      EXPECT_TRUE( other == value ) << name;
   }
   template< typename T >
   [[nodiscard]] T readOf( const char* name, T before ) const {
      EXPECT_EQ( member( name ).read( *gauge, &before ), accessDone ) << name;
      return before;
   }
   int call( const char* name, void* result, const void* argument ) const {
      return member( name ).call( *gauge, result, argument );
   }
   [[nodiscard]] std::string description() const { return gauge->describe().data(); }

   // Provides an address, which is never dereferenced.
   int there = 0;
   const Ptr< Gauge > gauge = gaugeFactory( "bar", {} );
};

TEST_F( AccessToAGauge, writesAndReadsAttributesOfEveryType ) {
   EXPECT_EQ( readOf( "on", true ), false );
   EXPECT_EQ( readOf< std::uint32_t >( "serial", 0 ), 100U );
   EXPECT_TRUE( readOf( "label", String() ) == "bar" );
   EXPECT_EQ( readOf< VoidPtr >( "wire", &there ), nullptr );
   EXPECT_FALSE( readOf< Ptr< Gauge > >( "peer", gauge ) );
   expectToKeep( "on", true, false );
   expectToKeep< std::int32_t >( "offset", -2147483647, 0 );
   expectToKeep( "period", Interval( 0xfffffffffffffffe ), Interval() );
   expectToKeep( "label", String( "a label that is too long for the object itself" ), String() );
   expectToKeep< VoidPtr >( "wire", &there, nullptr );
   // The base's member, which a member of the gauge hides.
   const Member serial = Tessel::memberOf( Tessel::baseOf( gauge->typeData() ), "serial" );
   std::uint32_t number = 0xfffffffe;
   EXPECT_EQ( serial.write( *gauge, &number ), accessDone );
   number = 0;
   EXPECT_EQ( serial.read( *gauge, &number ), accessDone );
   EXPECT_EQ( number, 0xfffffffe );
   EXPECT_EQ(
      description(), "on, serial 4294967294, offset -2147483647, period "
                     "18446744073709551614, label a label that is too long for the object "
                     "itself, wired" );
}

TEST_F( AccessToAGauge, countsTheUsesOfAnEntityValue ) {
   const auto peer = gaugeFactory( "volt", {} );
   const Ptr< Gauge > none;
   expectToKeep( "peer", peer, none );
   EXPECT_EQ( peer->useCount(), 2U );
   {
      const auto read = readOf( "peer", none );
      EXPECT_EQ( read, peer );
      EXPECT_EQ( peer->useCount(), 3U );
   }
   Ptr< Gauge > before;
   EXPECT_EQ( call( "peerIs", &before, &none ), accessDone );
   EXPECT_EQ( before, peer );
   EXPECT_EQ( call( "peerIs", &before, &peer ), accessDone );
   EXPECT_FALSE( before );
   EXPECT_EQ( peer->useCount(), 2U );
   expectToKeep( "peer", none, gauge );
   EXPECT_EQ( peer->useCount(), 1U );
}

TEST_F( AccessToAGauge, callsOperationsWithNoneOneOrSeveralArguments ) {
   const bool upper = true;
   const std::int32_t left = 5;
   const std::int32_t right = -7;
   const std::uint32_t number = 3;
   const Interval period( 9 );
   const VoidPtr wire = &there;
   const String text = " of 4";

   std::uint32_t measured = 0;
   EXPECT_EQ( call( "measure", &measured, nullptr ), accessDone );
   EXPECT_EQ( measured, 100U );
   std::int32_t difference = 0;
   EXPECT_EQ( call( "difference", &difference, Addresses{ &left, &right }.data() ), accessDone );
   EXPECT_EQ( difference, 12 );
   String joined;
   EXPECT_EQ( call( "joined", &joined, Addresses{ &upper, &number, &text }.data() ), accessDone );
   EXPECT_TRUE( joined == "NUMBER 3 of 4" );
   bool changed = false;
   EXPECT_EQ( call( "labelIs", &changed, &text ), accessDone );
   EXPECT_TRUE( changed );
   EXPECT_EQ( call( "labelIs", &changed, &text ), accessDone );
   EXPECT_FALSE( changed );
   EXPECT_EQ(
      call( "allIs", nullptr, Addresses{ &upper, &number, &period, &wire }.data() ), accessDone );
   String described;
   EXPECT_EQ( call( "describe", &described, nullptr ), accessDone );
   EXPECT_TRUE( described == "on, serial 3, offset 0, period 9, label  of 4, wired" );
   EXPECT_EQ( call( "reset", nullptr, nullptr ), accessDone );
   EXPECT_EQ( description(), "off, serial 0, offset 0, period 0, label , not wired" );
}

TEST_F( AccessToAGauge, takesANullArgumentForAnAbsentOptional ) {
   String note;
   EXPECT_EQ( call( "note", &note, nullptr ), accessDone );
   EXPECT_TRUE( note == "no note" );
   const String text = "do not touch";
   EXPECT_EQ( call( "note", &note, &text ), accessDone );
   EXPECT_TRUE( note == "note: do not touch" );
}

TEST_F( AccessToAGauge, dropsAResultThatNobodyWants ) {
   const bool upper = false;
   const std::int32_t left = 1;
   const String label = "new";
   const Ptr< Gauge > none;
   EXPECT_EQ( call( "labelIs", nullptr, &label ), accessDone );
   EXPECT_TRUE( readOf( "label", String() ) == "new" );
   const auto peer = gaugeFactory( "volt", {} );
   EXPECT_EQ( call( "peerIs", nullptr, &peer ), accessDone );
   EXPECT_EQ( call( "peerIs", nullptr, &none ), accessDone );
   EXPECT_EQ( peer->useCount(), 1U );
   EXPECT_EQ( call( "difference", nullptr, Addresses{ &left, &left }.data() ), accessDone );
   EXPECT_EQ( call( "joined", nullptr, Addresses{ &upper, &left, &label }.data() ), accessDone );
   for( const char* const name : { "describe", "note", "measure" } ) {
      EXPECT_EQ( call( name, nullptr, nullptr ), accessDone ) << name;
   }
}

TEST_F( AccessToAGauge, refusesACallWhenAnArgumentIsMissing ) {
   const std::string before = description();
   std::int32_t result = 8;
   for( const char* const name : { "labelIs", "peerIs", "difference", "joined", "allIs" } ) {
      EXPECT_EQ( call( name, &result, nullptr ), accessRefused ) << name;
      const std::size_t count = member( name ).desc().paramCount;
      for( std::size_t missing = 0; count > 1 && missing < count; ++missing ) {
         Addresses arguments( count, &there );
         arguments[missing] = nullptr;
         EXPECT_EQ( call( name, &result, arguments.data() ), accessRefused ) << name << missing;
      }
   }
   EXPECT_EQ( result, 8 );
   EXPECT_EQ( description(), before );
}

TEST_F( AccessToAGauge, refusesRequestsThatDoNotFitTheMember ) {
   const std::string before = description();
   std::array< std::byte, 64 > value{};
   for( const Tessel::TypeRef type : { Tessel::baseOf( gauge->typeData() ), gauge->typeData() } ) {
      for( std::uint32_t id = 0; const Member each = Tessel::memberOf( type, id ); ++id ) {
         const std::string_view name = each.desc().name;
         if( each.desc().kind == Tessel::MemberKind::attribute ) {
            EXPECT_EQ( each.call( *gauge, value.data(), value.data() ), accessRefused ) << name;
            EXPECT_EQ( each.read( *gauge, nullptr ), accessRefused ) << name;
            EXPECT_EQ( each.write( *gauge, nullptr ), accessRefused ) << name;
         } else {
            EXPECT_EQ( each.read( *gauge, value.data() ), accessRefused ) << name;
            EXPECT_EQ( each.write( *gauge, value.data() ), accessRefused ) << name;
         }
      }
   }
   // Both are closed.
   String text = "bar";
   bool answer = false;
   EXPECT_EQ( member( "unit" ).read( *gauge, &text ), accessRefused );
   EXPECT_EQ( member( "unit" ).write( *gauge, &text ), accessRefused );
   EXPECT_EQ( call( "secretly", &answer, &text ), accessRefused );
   EXPECT_FALSE( answer );
   EXPECT_TRUE( gauge->secretly( "bar" ) );
   EXPECT_EQ( value, ( std::array< std::byte, 64 >{} ) );
   EXPECT_EQ( description(), before );
}

TEST_F( AccessToAGauge, callsHooks ) {
   EXPECT_EQ( call( "handleInitialized", nullptr, nullptr ), accessDone );
   EXPECT_EQ( gauge->measure(), 200U );
   EXPECT_EQ( call( "handleDeleted", nullptr, nullptr ), accessDone );
   EXPECT_EQ( gauge->measure(), 201U );
}

TEST_F( AccessToAGauge, throwsWhatTheMemberThrows ) {
   VoidPtr result = &there;
   EXPECT_THROW( call( "fail", &result, nullptr ), std::domain_error );
   EXPECT_EQ( result, &there );
}

TEST_F( AccessToAGauge, knowsMembersByTheirIdAloneAndThreeRequests ) {
   const auto access = &HideMe< Gauge >::inspectOperation;
   std::uint32_t value = 0;
   EXPECT_EQ( access( &value, gauge.get(), { "x", 2 }, 0, nullptr ), 0 );
   EXPECT_EQ( value, 100U );
   value = 5;
   EXPECT_EQ( access( nullptr, gauge.get(), { "x", 2 }, 1, &value ), 0 );
   EXPECT_EQ( gauge->measure(), 5U );
   EXPECT_EQ( access( nullptr, gauge.get(), { "x", 6 }, 10, nullptr ), 0 );
   EXPECT_EQ( gauge->measure(), 105U );
   for( const int request : { -1, 2, 9, 11, 0x7fffffff } ) {
      for( std::uint32_t id = 0; id < 8; ++id ) {
         EXPECT_EQ( access( &value, gauge.get(), { "", id }, request, &value ), accessRefused );
      }
   }
   for( const std::uint32_t id : { 8U, 14U, 0xffffffffU } ) {
      for( const int request : { 0, 1, 10, 11 } ) {
         EXPECT_EQ(
            access( &value, gauge.get(), { "unit", id }, request, &value ), accessUnknownMember );
      }
   }
   EXPECT_EQ( value, 5U );
}

TEST( GenericAccess, isHookedUpForEachTypeAndCreatesOnlyTypesWithAFactory ) {
   ASSERT_EQ( instrumentsModule.hooks.size(), 2U );
   const Tessel::TypeHooks& instrument = instrumentsModule.hooks[0];
   EXPECT_EQ( instrument.inspectOperation, &HideMe< Instrument >::inspectOperation );
   EXPECT_EQ( instrument.constructFromCtorArgs, nullptr );
   const Tessel::TypeHooks& gauge = instrumentsModule.hooks[1];
   EXPECT_EQ( gauge.inspectOperation, &HideMe< Gauge >::inspectOperation );
   EXPECT_EQ( gauge.constructFromCtorArgs, &HideMe< Gauge >::genericIfConstructFromCtorArgs );

   const auto some = gaugeFactory( "bar", {} );
   Instrument* created = some.get();
   HideMe< Instrument >::genericIfConstructFromCtorArgs( &created, nullptr );
   EXPECT_EQ( created, nullptr );
}

class ConstructionOfAGauge : public testing::Test {
 protected:
   ~ConstructionOfAGauge() override {
      EXPECT_EQ( Orl::allocCounts( "SodrelTest::Gauge" )->live, 0U );
   }

   static Ptr< Gauge > constructed( const String* unit, const String* maker ) {
      Gauge* created = nullptr;
      instrumentsModule.hooks[1].constructFromCtorArgs( &created, Addresses{ unit, maker }.data() );
      return Ptr< Gauge >::adopt( created );
   }

   const String unit = "bar";
   const String maker = "Forge";
};

TEST_F( ConstructionOfAGauge, storesAPointerThatOwnsTheOneUse ) {
   const auto gauge = constructed( &unit, &maker );
   ASSERT_TRUE( gauge );
   EXPECT_EQ( gauge->useCount(), 1U );
   EXPECT_TRUE( gauge->nodeFlag( Tessel::nodeInitialized ) );
   EXPECT_TRUE(
      gauge->describe() == "off, serial 0, offset 0, period 0, label Forge bar, not wired" );
}

TEST_F( ConstructionOfAGauge, takesANullArgumentForAnAbsentOptional ) {
   EXPECT_TRUE(
      constructed( &unit, nullptr )->describe() ==
      "off, serial 0, offset 0, period 0, label bar, not wired" );
}

TEST_F( ConstructionOfAGauge, throwsWhatTheConstructorThrowsAndLeavesNothing ) {
   const String noUnit;
   EXPECT_THROW( constructed( &noUnit, nullptr ), std::invalid_argument );
}

} // namespace
} // namespace SodrelTest
