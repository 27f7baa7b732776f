// Replies that systemd would not send: malformed, as bare errors, too late, or never.
#include <string>
#include <utility>
#include <vector>

#include <systemd/sd-bus.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

const std::string unreadable = ": No such device or address";
const std::string timedOut = ": Connection timed out";

const std::string textRead = "managerPropertyS Version";
const std::string flagRead = "managerPropertyB ShowStatus";
const std::string unitRead = "unitPropertyS web.service Id";
const std::string plainCall = "asyncManagerCall Halt";
const std::string loadCall = "asyncManagerCallSO LoadUnit x";
const std::string startCall = "asyncManagerCallSsO StartUnit x replace";

class AReply : public ALibraryClient {
 protected:
   std::string outcome( const std::string& operation, const Script& script ) {
      manager.onCall( callOf( operation ), script );
      return outcomeOf( operation );
   }
};

TEST_F( AReply, ofTheRightTypeIsReturnedUnchanged ) {
   const std::string large( 30'000, 'x' );
   const std::vector< std::pair< std::string, std::pair< Body, std::string > > > rows{
      { textRead, { body( "v", "s", "" ), "" } },
      { textRead, { body( "v", "s", "\u00fc{}%s\n" ), "\u00fc{}%s\n" } },
      { unitRead, { body( "v", "s", large ), large } },
      { flagRead, { body( "v", "b", true ), "true" } },
      { flagRead, { body( "v", "b", false ), "false" } },
      { loadCall, { body( "o", "/" ), "/" } },
      // A reply may contain more than is read, and the reply to a call without a result is not
      // read.
      { flagRead, { body( "vs", "b", true, "more" ), "true" } },
      { loadCall, { body( "ou", "/a", 7 ), "/a" } },
      { plainCall, { {}, "called" } },
      { plainCall, { body( "s", "x" ), "called" } },
      { plainCall, { body( "as", 1, "x" ), "called" } },
   };
   for( const auto& [operation, row] : rows ) {
      EXPECT_EQ( outcome( operation, { reply( row.first ) } ), row.second );
   }
}

TEST_F( AReply, withoutAnObjectPathCannotBeRead ) {
   const std::string failure = "Sodrel::SdbusMessageException: Sdbus::";
   for( const Body& odd : std::vector< Body >{ {},
                                               body( "s", "/a" ),
                                               body( "b", true ),
                                               body( "u", 7 ),
                                               body( "ao", 1, "/a" ),
                                               body( "v", "o", "/a" ),
                                               body( "(o)", "/a" ),
                                               body( "so", "a", "/a" ) } ) {
      SCOPED_TRACE( odd.signature );
      EXPECT_EQ(
         outcome( loadCall, { reply( odd ) } ),
         failure + "asyncManagerCallSO, message read failed when calling LoadUnit x" + unreadable );
      EXPECT_EQ(
         outcome( startCall, { reply( odd ) } ),
         failure + "asyncManagerCallSsO, message read failed when calling StartUnit x replace" +
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
      for( const std::string& read : { textRead, flagRead, unitRead } ) {
         EXPECT_EQ( outcome( read, { reply( odd ) } ), failureOf( read ) + unreadable );
      }
   }
}

TEST_F( AReply, thatIsAnErrorIsReportedByItsMessageIfAnyAndNeverByItsName ) {
   for( const std::string& operation :
        { textRead, flagRead, unitRead, plainCall, loadCall, startCall } ) {
      for( const std::string message : { "No, {} %s: no.", "" } ) {
         EXPECT_EQ(
            outcome( operation, { error( "org.example.No", message ) } ),
            failureOf( operation ) + ": " + message );
      }
      EXPECT_EQ(
         outcome( operation, { error( SD_BUS_ERROR_FAILED, "Failed." ) } ),
         failureOf( operation ) + ": Failed." );
      EXPECT_EQ( outcome( operation, { error( "org.example.No" ) } ), failureOf( operation ) );
   }
}

TEST_F( AReply, ofTheWrongShapeToTheProbeCostsTheConnection ) {
   for( const Script& odd : std::vector< Script >{
           { reply() }, { reply( body( "v", "u", 1 ) ) }, { error( "org.example.No", "No." ) } } ) {
      manager.onCall( "Get SystemState", odd );
      moments.clear();
      EXPECT_EQ( outcomeOf( textRead ), "252.39" );
      ASSERT_EQ( moments.lines().size(), 2U );
      EXPECT_EQ(
         moments.lines()[1].substr( 0, moments.lines()[1].rfind( ' ' ) ),
         "sdbus/5: Reconnect sd-bus, older connection expired:" );
   }
   for( const std::string state : { "", "degraded", "anything" } ) {
      manager.onCall( "Get SystemState", { reply( body( "v", "s", state ) ) } );
      moments.clear();
      EXPECT_EQ( outcomeOf( textRead ), "252.39" );
      EXPECT_EQ( moments.lines().size(), 1U );
   }
}

// The limit is long enough for the probe, to which it also applies.
class ALateReply : public AReply {
 protected:
   void SetUp() override { sd_bus_set_method_call_timeout( client->sdbus(), limit ); }

   static constexpr uint64_t limit = 250'000;
};

TEST_F( ALateReply, endsTheCallAtItsTimeLimit ) {
   for( const std::string& operation : { plainCall, textRead, flagRead } ) {
      EXPECT_EQ( outcome( operation, {} ), failureOf( operation ) + timedOut );
   }
   // The limit belongs to the connection and is lost with it.
   manager.onCall( "Get SystemState", {} );
   moments.clear();
   EXPECT_EQ( outcomeOf( textRead ), "252.39" );
   EXPECT_EQ( moments.lines().back(), "sdbus/5: Reconnect sd-bus, older connection expired: 110" );
   uint64_t limitNow = 0;
   EXPECT_EQ( sd_bus_get_method_call_timeout( client->sdbus(), &limitNow ), 0 );
   EXPECT_NE( limitNow, limit );
}

TEST_F( ALateReply, isNotMistakenForThatToTheNextCall ) {
   MessagePtr late;
   const Action keep =
      custom( [&]( sd_bus_message* call ) { late.reset( sd_bus_message_ref( call ) ); } );
   const Action replyLate = custom( [&]( sd_bus_message* ) {
      const MessagePtr call = std::move( late );
      sendReply( call.get(), body( "o", jobOf( 6 ) ) );
   } );
   EXPECT_EQ( outcome( startCall, { keep } ), failureOf( startCall ) + timedOut );
   sd_bus_set_method_call_timeout( client->sdbus(), 0 );
   manager.onCall(
      "StartUnit",
      { replyLate, jobRemoved( 6, "failed" ), replyJob( 7 ), jobRemoved( 7, "done" ) } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

} // namespace

} // namespace SodrelTest
