// Replies that systemd would not give: of the wrong shape, as bare errors, too late, or never.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <systemd/sd-bus.h>

#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

const std::string unreadable = ": No such device or address";

class AReply : public ALibraryClient {
 protected:
   std::string stringProperty() {
      return outcomeOf( [&] { return client->managerPropertyS( "Version" ); } );
   }
   std::string boolProperty() {
      return outcomeOf( [&] {
         return Tessel::String( client->managerPropertyB( "ShowStatus" ) ? "true" : "false" );
      } );
   }
   std::string unitProperty() {
      return outcomeOf( [&] { return client->unitPropertyS( "web.service", "Id" ); } );
   }
   std::string plainCall() {
      return outcomeOf( [&]() -> Tessel::String {
         client->asyncManagerCall( "Halt" );
         return "called";
      } );
   }
   std::string callWithOneString() {
      return outcomeOf( [&] { return client->asyncManagerCallSO( "LoadUnit", "a b" ); } );
   }
   std::string callWithTwoStrings() { return call( "StartUnit", "x", true ); }
};

const std::string stringFailure = "Sodrel::SdbusCallException: Sdbus::managerPropertyS, "
                                  "manager property Version read failed";
const std::string boolFailure = "Sodrel::SdbusCallException: Sdbus::managerPropertyB, "
                                "manager property ShowStatus read failed";
const std::string unitFailure = "Sodrel::SdbusCallException: Sdbus::unitPropertyS, "
                                "read failed for property Id of web.service";
const std::string plainFailure =
   "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Halt failed";
const std::string oneStringFailure =
   "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call LoadUnit a b failed";
const std::string twoStringsFailure = "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, "
                                      "sd-bus call StartUnit x replace failed";

TEST_F( AReply, withTheRightTypeGivesItsValueAsItIs ) {
   manager.onCall( "Get Version", { reply( body( "v", "s", "" ) ) } );
   EXPECT_EQ( stringProperty(), "" );
   manager.onCall( "Get Version", { reply( body( "v", "s", "\u00fc{}%s\n" ) ) } );
   EXPECT_EQ( stringProperty(), "\u00fc{}%s\n" );
   manager.onCall( "Get Id", { reply( body( "v", "s", std::string( 30'000, 'x' ) ) ) } );
   EXPECT_EQ( unitProperty(), std::string( 30'000, 'x' ) );
   for( const bool value : { true, false } ) {
      manager.onCall( "Get ShowStatus", { reply( body( "v", "b", value ) ) } );
      EXPECT_EQ( boolProperty(), value ? "true" : "false" );
   }
   manager.onCall( "LoadUnit", { reply( body( "o", "/" ) ) } );
   EXPECT_EQ( callWithOneString(), "/" );
}

TEST_F( AReply, toACallWithoutAResultIsNotRead ) {
   for( const Body& any : std::vector< Body >{ {}, body( "s", "x" ), body( "as", 1, "x" ) } ) {
      manager.onCall( "Halt", { reply( any ) } );
      EXPECT_EQ( plainCall(), "called" );
   }
}

TEST_F( AReply, mayHoldMoreThanItNeeds ) {
   manager.onCall( "LoadUnit", { reply( body( "ou", "/a", 7 ) ) } );
   EXPECT_EQ( callWithOneString(), "/a" );
   manager.onCall( "Get ShowStatus", { reply( body( "vs", "b", true, "more" ) ) } );
   EXPECT_EQ( boolProperty(), "true" );
}

TEST_F( AReply, withoutAnObjectPathCannotBeRead ) {
   for( const Body& odd : std::vector< Body >{ {},
                                               body( "s", "/a" ),
                                               body( "b", true ),
                                               body( "u", 7 ),
                                               body( "ao", 1, "/a" ),
                                               body( "v", "o", "/a" ),
                                               body( "(o)", "/a" ),
                                               body( "so", "a", "/a" ) } ) {
      SCOPED_TRACE( odd.signature );
      manager.onCall( "LoadUnit", { reply( odd ) } );
      EXPECT_EQ(
         callWithOneString(), "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSO, message "
                              "read failed when calling LoadUnit a b" +
                                 unreadable );
      manager.onCall( "StartUnit", { reply( odd ) } );
      EXPECT_EQ(
         callWithTwoStrings(), "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSsO, message "
                               "read failed when calling StartUnit x replace" +
                                  unreadable );
   }
}

TEST_F( AReply, withoutTheRightPropertyIsAFailedRead ) {
   for( const Body& odd : std::vector< Body >{ {},
                                               body( "s", "252" ),
                                               body( "v", "u", 252 ),
                                               body( "v", "v", "s", "252" ),
                                               body( "as", 1, "252" ) } ) {
      SCOPED_TRACE( odd.signature );
      manager.onCall( "Get Version", { reply( odd ) } );
      EXPECT_EQ( stringProperty(), stringFailure + unreadable );
      manager.onCall( "Get ShowStatus", { reply( odd ) } );
      EXPECT_EQ( boolProperty(), boolFailure + unreadable );
      manager.onCall( "Get Id", { reply( odd ) } );
      EXPECT_EQ( unitProperty(), unitFailure + unreadable );
   }
}

TEST_F( AReply, thatIsAnErrorGivesItsMessageIfItHasOneAndNeverItsName ) {
   const std::vector< std::pair< std::string, std::function< std::string() > > > operations{
      { "Get Version", [&] { return stringProperty(); } },
      { "Get ShowStatus", [&] { return boolProperty(); } },
      { "Get Id", [&] { return unitProperty(); } },
      { "Halt", [&] { return plainCall(); } },
      { "LoadUnit", [&] { return callWithOneString(); } },
      { "StartUnit", [&] { return callWithTwoStrings(); } },
   };
   const std::string failures[]{ stringFailure, boolFailure,      unitFailure,
                                 plainFailure,  oneStringFailure, twoStringsFailure };
   size_t at = 0;
   for( const auto& [name, operation] : operations ) {
      SCOPED_TRACE( name );
      const std::string& failure = failures[at++];
      manager.onCall( name, { error( "org.example.No", "No, {} %s: no." ) } );
      EXPECT_EQ( operation(), failure + ": No, {} %s: no." );
      manager.onCall( name, { error( "org.example.No", "" ) } );
      EXPECT_EQ( operation(), failure + ": " );
      manager.onCall( name, { error( "org.example.No" ) } );
      EXPECT_EQ( operation(), failure );
      manager.onCall( name, { error( SD_BUS_ERROR_FAILED, "Failed." ) } );
      EXPECT_EQ( operation(), failure + ": Failed." );
   }
}

TEST_F( AReply, ofTheWrongShapeToTheProbeCostsTheConnection ) {
   for( const Script& odd : std::vector< Script >{
           { reply() }, { reply( body( "v", "u", 1 ) ) }, { error( "org.example.No", "No." ) } } ) {
      manager.onCall( "Get SystemState", odd );
      moments.clear();
      EXPECT_EQ( stringProperty(), "252.39" );
      ASSERT_EQ( moments.lines().size(), 2U );
      EXPECT_EQ(
         moments.lines()[1].substr( 0, moments.lines()[1].rfind( ' ' ) ),
         "sdbus/5: Reconnect sd-bus, older connection expired:" );
   }
   for( const std::string state : { "", "degraded", "anything" } ) {
      manager.onCall( "Get SystemState", { reply( body( "v", "s", state ) ) } );
      moments.clear();
      EXPECT_EQ( stringProperty(), "252.39" );
      EXPECT_EQ( moments.lines().size(), 1U );
   }
}

// The limit is long enough for the probe, which it holds for as well.
TEST_F( AReply, thatNeverComesEndsTheCallAtItsTimeLimit ) {
   constexpr uint64_t limit = 250'000;
   sd_bus_set_method_call_timeout( client->sdbus(), limit );
   manager.onCall( "Halt", {} );
   EXPECT_EQ( plainCall(), plainFailure + ": Connection timed out" );
   manager.onCall( "Get Version", {} );
   EXPECT_EQ( stringProperty(), stringFailure + ": Connection timed out" );
   manager.onCall( "Get ShowStatus", {} );
   EXPECT_EQ( boolProperty(), boolFailure + ": Connection timed out" );

   // The limit is that of the connection, and goes with it.
   manager.onCall( "Get SystemState", {} );
   moments.clear();
   EXPECT_EQ( stringProperty(), "252.39" );
   EXPECT_EQ( moments.lines().back(), "sdbus/5: Reconnect sd-bus, older connection expired: 110" );
   uint64_t limitNow = 0;
   EXPECT_EQ( sd_bus_get_method_call_timeout( client->sdbus(), &limitNow ), 0 );
   EXPECT_NE( limitNow, limit );
}

TEST_F( AReply, thatComesTooLateIsNotTakenForThatToTheNextCall ) {
   sd_bus_set_method_call_timeout( client->sdbus(), 250'000 );
   manager.onCall( "LoadUnit", { hold( "late" ), reply( body( "o", "/late" ) ) } );
   EXPECT_EQ( callWithOneString(), oneStringFailure + ": Connection timed out" );
   sd_bus_set_method_call_timeout( client->sdbus(), 0 );
   manager.onCall( "LoadUnit", { raise( "late" ), reply( body( "o", "/right" ) ) } );
   EXPECT_EQ( callWithOneString(), "/right" );
}

} // namespace

} // namespace Sodrel::Test
