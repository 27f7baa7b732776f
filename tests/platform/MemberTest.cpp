// Generic access: reading, writing and calling members of live entities, and creating entities.
#include "Instruments.h"

#include <platform/memory/AllocTrack.h>
#include <platform/types/TypeData.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

using Orl::VoidPtr;
using SodrelTest::Gauge;
using SodrelTest::Instrument;
using Tessel::accessDone;
using Tessel::accessRefused;
using Tessel::accessUnknownMember;
using Tessel::Interval;
using Tessel::Member;
using Tessel::Ptr;
using Tessel::String;

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

   // Some address; nobody looks behind it.
   int there = 0;
   const Ptr< Gauge > gauge = SodrelTest::gaugeFactory( "bar", {} );
};

TEST_F( AccessToAGauge, writesAndReadsAttributesOfEveryType ) {
   expectToKeep( "on", true, false );
   const Member serial = Tessel::memberOf( Tessel::baseOf( gauge->typeData() ), "serial" );
   std::uint32_t number = 0xfffffffe;
   EXPECT_EQ( serial.write( *gauge, &number ), accessDone );
   expectToKeep< std::int32_t >( "offset", -2147483647, 0 );
   expectToKeep( "period", Interval( 0xfffffffffffffffe ), Interval() );
   expectToKeep( "label", String( "a label that is too long for the object itself" ), String() );
   expectToKeep< VoidPtr >( "wire", &there, nullptr );
   EXPECT_EQ(
      description(), "on, serial 4294967294, offset -2147483647, period "
                     "18446744073709551614, label a label that is too long for the object "
                     "itself, wired" );
   number = 0;
   EXPECT_EQ( serial.read( *gauge, &number ), accessDone );
   EXPECT_EQ( number, 0xfffffffe );
}

TEST_F( AccessToAGauge, readsWhatTheEntityHas ) {
   EXPECT_EQ( readOf( "on", true ), false );
   EXPECT_EQ( readOf< std::uint32_t >( "serial", 0 ), 100U );
   EXPECT_TRUE( readOf( "label", String() ) == "bar" );
   EXPECT_EQ( readOf< VoidPtr >( "wire", &there ), nullptr );
   EXPECT_FALSE( readOf< Ptr< Gauge > >( "peer", gauge ) );
}

TEST_F( AccessToAGauge, countsTheUsesOfAnEntityValue ) {
   auto peer = SodrelTest::gaugeFactory( "volt", {} );
   expectToKeep( "peer", peer, Ptr< Gauge >() );
   EXPECT_EQ( peer->useCount(), 2U );
   {
      const auto read = readOf( "peer", Ptr< Gauge >() );
      EXPECT_EQ( read, peer );
      EXPECT_EQ( peer->useCount(), 3U );
   }
   expectToKeep( "peer", Ptr< Gauge >(), gauge );
   EXPECT_EQ( peer->useCount(), 1U );
}

TEST_F( AccessToAGauge, callsOperationsWithoutParameters ) {
   String description;
   EXPECT_EQ( call( "describe", &description, nullptr ), accessDone );
   EXPECT_TRUE( description == "off, serial 0, offset 0, period 0, label bar, not wired" );
   EXPECT_EQ( call( "reset", nullptr, nullptr ), accessDone );
   EXPECT_EQ( this->description(), "off, serial 0, offset 0, period 0, label , not wired" );
}

TEST_F( AccessToAGauge, callsThroughTheVirtualTable ) {
   std::uint32_t measured = 0;
   EXPECT_EQ( call( "measure", &measured, nullptr ), accessDone );
   EXPECT_EQ( measured, 100U );
}

TEST_F( AccessToAGauge, passesOneArgumentByItsAddress ) {
   const String label = "new";
   bool changed = false;
   EXPECT_EQ( call( "labelIs", &changed, &label ), accessDone );
   EXPECT_TRUE( changed );
   EXPECT_EQ( call( "labelIs", &changed, &label ), accessDone );
   EXPECT_FALSE( changed );
   EXPECT_TRUE( readOf( "label", String() ) == "new" );
}

TEST_F( AccessToAGauge, passesTheValueOfAnEntityArgument ) {
   const auto first = SodrelTest::gaugeFactory( "volt", {} );
   const Ptr< Gauge > none;
   Ptr< Gauge > before = gauge;
   EXPECT_EQ( call( "peerIs", &before, &first ), accessDone );
   EXPECT_FALSE( before );
   EXPECT_EQ( call( "peerIs", &before, &none ), accessDone );
   EXPECT_EQ( before, first );
   EXPECT_EQ( first->useCount(), 2U );
}

TEST_F( AccessToAGauge, passesSeveralArgumentsAsAnArrayInOrder ) {
   const std::int32_t left = 5;
   const std::int32_t right = -7;
   const std::array< const void*, 2 > both{ &left, &right };
   std::int32_t difference = 0;
   EXPECT_EQ( call( "difference", &difference, both.data() ), accessDone );
   EXPECT_EQ( difference, 12 );

   const bool upper = true;
   const std::uint32_t number = 3;
   const String text = " of 4";
   const std::array< const void*, 3 > three{ &upper, &number, &text };
   String joined;
   EXPECT_EQ( call( "joined", &joined, three.data() ), accessDone );
   EXPECT_TRUE( joined == "NUMBER 3 of 4" );

   const Interval period( 9 );
   const VoidPtr wire = &there;
   const std::array< const void*, 4 > four{ &upper, &number, &period, &wire };
   EXPECT_EQ( call( "allIs", nullptr, four.data() ), accessDone );
   EXPECT_EQ( description(), "on, serial 3, offset 0, period 9, label bar, wired" );
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
   const String label = "new";
   EXPECT_EQ( call( "labelIs", nullptr, &label ), accessDone );
   EXPECT_TRUE( readOf( "label", String() ) == "new" );
   const auto peer = SodrelTest::gaugeFactory( "volt", {} );
   EXPECT_EQ( call( "peerIs", nullptr, &peer ), accessDone );
   EXPECT_EQ( call( "peerIs", nullptr, &gauge ), accessDone );
   EXPECT_EQ( peer->useCount(), 1U );
   const Ptr< Gauge > none;
   EXPECT_EQ( call( "peerIs", nullptr, &none ), accessDone );
   const std::int32_t left = 1;
   const std::array< const void*, 2 > ofDifference{ &left, &left };
   EXPECT_EQ( call( "difference", nullptr, ofDifference.data() ), accessDone );
   const bool upper = false;
   const std::uint32_t number = 1;
   const std::array< const void*, 3 > ofJoined{ &upper, &number, &label };
   EXPECT_EQ( call( "joined", nullptr, ofJoined.data() ), accessDone );
   for( const char* const name : { "describe", "note", "measure" } ) {
      EXPECT_EQ( call( name, nullptr, nullptr ), accessDone ) << name;
   }
}

TEST_F( AccessToAGauge, refusesACallWhenAnArgumentIsMissing ) {
   bool changed = true;
   EXPECT_EQ( call( "labelIs", &changed, nullptr ), accessRefused );
   EXPECT_TRUE( changed );
   std::int32_t difference = 8;
   const std::int32_t left = 5;
   EXPECT_EQ( call( "difference", &difference, nullptr ), accessRefused );
   const std::array< const void*, 2 > withoutSecond{ &left, nullptr };
   EXPECT_EQ( call( "difference", &difference, withoutSecond.data() ), accessRefused );
   const std::array< const void*, 2 > withoutFirst{ nullptr, &left };
   EXPECT_EQ( call( "difference", &difference, withoutFirst.data() ), accessRefused );
   EXPECT_EQ( difference, 8 );
   EXPECT_EQ( call( "joined", nullptr, nullptr ), accessRefused );
   EXPECT_EQ( call( "allIs", nullptr, nullptr ), accessRefused );
   EXPECT_EQ( call( "peerIs", nullptr, nullptr ), accessRefused );
   for( std::size_t missing = 0; missing < 4; ++missing ) {
      std::array< const void*, 4 > arguments{ &left, &left, &left, &left };
      arguments.at( missing ) = nullptr;
      EXPECT_EQ( call( "allIs", nullptr, arguments.data() ), accessRefused );
      if( missing < 3 ) {
         EXPECT_EQ( call( "joined", nullptr, arguments.data() ), accessRefused );
      }
   }
   EXPECT_EQ( description(), "off, serial 0, offset 0, period 0, label bar, not wired" );
}

TEST_F( AccessToAGauge, refusesAReadOrWriteWithoutAnAddress ) {
   for( const char* const name : { "on", "offset", "period", "label", "wire", "serial", "peer" } ) {
      EXPECT_EQ( member( name ).read( *gauge, nullptr ), accessRefused ) << name;
      EXPECT_EQ( member( name ).write( *gauge, nullptr ), accessRefused ) << name;
   }
}

TEST_F( AccessToAGauge, refusesRequestsThatDoNotFitTheMember ) {
   bool value = true;
   EXPECT_EQ( call( "on", &value, &value ), accessRefused );
   for( const char* const name : { "describe", "reset", "labelIs", "difference", "joined", "allIs",
                                   "note", "measure", "handleInitialized" } ) {
      EXPECT_EQ( member( name ).read( *gauge, &value ), accessRefused ) << name;
      EXPECT_EQ( member( name ).write( *gauge, &value ), accessRefused ) << name;
   }
   EXPECT_TRUE( value );
}

TEST_F( AccessToAGauge, refusesEverythingOnAClosedMember ) {
   String text = "bar";
   bool answer = false;
   for( const char* const name : { "unit", "secretly" } ) {
      EXPECT_EQ( member( name ).read( *gauge, &text ), accessRefused );
      EXPECT_EQ( member( name ).write( *gauge, &text ), accessRefused );
      EXPECT_EQ( call( name, &answer, &text ), accessRefused );
   }
   EXPECT_FALSE( answer );
   EXPECT_TRUE( gauge->secretly( "bar" ) );
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

TEST_F( AccessToAGauge, answersEveryOtherRequestOnAKnownMemberWithRefusal ) {
   using Access = Tessel::HideMe< Gauge >;
   std::uint32_t value = 7;
   for( const int request : { -1, 2, 9, 11, 0x7fffffff } ) {
      for( std::uint32_t id = 0; id < 8; ++id ) {
         EXPECT_EQ(
            Access::inspectOperation( &value, gauge.get(), { "", id }, request, &value ),
            accessRefused );
      }
   }
   EXPECT_EQ( value, 7U );
}

TEST_F( AccessToAGauge, knowsMembersByTheirIdAlone ) {
   using Access = Tessel::HideMe< Gauge >;
   std::uint32_t value = 0;
   EXPECT_EQ( Access::inspectOperation( &value, gauge.get(), { "x", 2 }, 0, nullptr ), 0 );
   EXPECT_EQ( value, 100U );
   value = 5;
   EXPECT_EQ( Access::inspectOperation( nullptr, gauge.get(), { "x", 2 }, 1, &value ), 0 );
   EXPECT_EQ( gauge->measure(), 5U );
   EXPECT_EQ( Access::inspectOperation( nullptr, gauge.get(), { "x", 6 }, 10, nullptr ), 0 );
   EXPECT_EQ( gauge->measure(), 105U );
   for( const std::uint32_t id : { 8U, 14U, 0xffffffffU } ) {
      for( const int request : { 0, 1, 10, 11 } ) {
         EXPECT_EQ(
            Access::inspectOperation( &value, gauge.get(), { "unit", id }, request, &value ),
            accessUnknownMember );
      }
   }
}

TEST( GenericAccess, isHookedUpForEachTypeAndCreatesOnlyWhatHasAFactory ) {
   using Tessel::HideMe;
   ASSERT_EQ( instrumentsModule.hooks.size(), 2U );
   const Tessel::TypeHooks& instrument = instrumentsModule.hooks[0];
   EXPECT_EQ( instrument.inspectOperation, &HideMe< Instrument >::inspectOperation );
   EXPECT_EQ( instrument.constructFromCtorArgs, nullptr );
   const Tessel::TypeHooks& gauge = instrumentsModule.hooks[1];
   EXPECT_EQ( gauge.inspectOperation, &HideMe< Gauge >::inspectOperation );
   EXPECT_EQ( gauge.constructFromCtorArgs, &HideMe< Gauge >::genericIfConstructFromCtorArgs );
}

class ConstructionOfAGauge : public testing::Test {
 protected:
   static Ptr< Gauge > constructed( const void* unit, const void* maker ) {
      const auto hooks = instrumentsModule.hooks[1];
      const std::array< const void*, 2 > arguments{ unit, maker };
      Gauge* created = nullptr;
      hooks.constructFromCtorArgs( &created, arguments.data() );
      return Ptr< Gauge >::adopt( created );
   }

   const String unit = "bar";
   const String maker = "Forge";
};

TEST_F( ConstructionOfAGauge, storesAPointerThatOwnsTheOneUse ) {
   auto gauge = constructed( &unit, &maker );
   ASSERT_TRUE( gauge );
   EXPECT_EQ( gauge->useCount(), 1U );
   EXPECT_TRUE( gauge->nodeFlag( Tessel::nodeInitialized ) );
   EXPECT_TRUE(
      gauge->describe() == "off, serial 0, offset 0, period 0, label Forge bar, not wired" );
   gauge = nullptr;
   EXPECT_EQ( Orl::allocCounts( "SodrelTest::Gauge" )->live, 0U );
}

TEST_F( ConstructionOfAGauge, takesANullArgumentForAnAbsentOptional ) {
   EXPECT_TRUE(
      constructed( &unit, nullptr )->describe() ==
      "off, serial 0, offset 0, period 0, label bar, not wired" );
}

TEST_F( ConstructionOfAGauge, throwsWhatTheConstructorThrowsAndLeavesNothing ) {
   const String noUnit;
   EXPECT_THROW( constructed( &noUnit, nullptr ), std::invalid_argument );
   EXPECT_EQ( Orl::allocCounts( "SodrelTest::Gauge" )->live, 0U );
}

TEST( ConstructionOfAnInstrument, givesNothing ) {
   const auto gauge = SodrelTest::gaugeFactory( "bar", {} );
   Instrument* created = gauge.get();
   Tessel::HideMe< Instrument >::genericIfConstructFromCtorArgs( &created, nullptr );
   EXPECT_EQ( created, nullptr );
}
