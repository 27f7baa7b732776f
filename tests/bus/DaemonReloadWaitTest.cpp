// Waits for a reload of the manager, with signals in orders that systemd does not produce.
#include <csignal>
#include <regex>
#include <string>
#include <vector>

#include <support/PrivateBusRecord.h>

#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

using ::testing::ElementsAre;

const std::string waiting = "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, ";

class AWaitForAReload : public ALibraryClient {
 protected:
   // How often "Reload" has been called since the record was made or last asked.
   long reloads( PrivateBusRecord& record ) {
      const std::vector< std::string > texts = record.texts();
      record.clear();
      return std::count( texts.begin(), texts.end(), "Reload" );
   }
};

TEST_F( AWaitForAReload, endsWhenAStartAndAnEndHaveComeInOneOfTheseOrders ) {
   PrivateBusRecord record( bus );
   for( const Script& script : std::vector< Script >{
           { reloading( true ), reloading( false ), reply() },
           { reloading( true ), reply(), reloading( false ) },
           { reply(), reloading( true ), reloading( false ) },
           { reloading( true ), reloading( true ), reloading( false ), reply() },
           { reloading( true ), reloading( false ), reloading( false ), reply() },
           { reloading( true ), reloading( false ), reloading( true ), reply() },
           // The end of somebody else's reload comes first.
           { reloading( false ), reloading( true ), reloading( false ), reply() },
           { reloading( false ), reloading( true ), reply(), reloading( false ) },
        } ) {
      manager.onCall( "Reload", script );
      EXPECT_EQ( reload(), "reloaded" );
      EXPECT_EQ( reloads( record ), 1 );
   }
}

TEST_F( AWaitForAReload, callsOnceMoreWhereAnEndHasComeWithoutAStart ) {
   PrivateBusRecord record( bus );
   const std::vector< Script > withoutAStart{
      { reloading( false ), reply() },
      { reply(), reloading( false ) },
      { reloading( false ), reloading( false ), reply() },
   };
   for( const Script& first : withoutAStart ) {
      manager.onCall( "Reload", first );
      manager.onCall( "Reload", { reloading( true ), reloading( false ), reply() } );
      EXPECT_EQ( reload(), "reloaded" );
      EXPECT_EQ( reloads( record ), 2 );
   }
}

TEST_F( AWaitForAReload, passesOnWhatTheSecondCallOrItsWaitThrows ) {
   PrivateBusRecord record( bus );
   manager.onCall( "Reload", { reloading( false ), reply() } );
   manager.onCall( "Reload", { error( "org.example.No", "Not again." ) } );
   EXPECT_EQ(
      reload(), "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Reload failed: "
                "Not again." );
   EXPECT_EQ( reloads( record ), 2 );

   manager.onCall( "Reload", { reloading( false ), reply() } );
   manager.onCall( "Reload", { signal( "Reloading", body( "s", "true" ) ), reply() } );
   EXPECT_EQ( reload(), waiting + "callback handling failed" );
   EXPECT_EQ( reloads( record ), 2 );
}

TEST_F( AWaitForAReload, endsTheProcessAfterTheSecondEndWithoutAStart ) {
   manager.onEveryCall( "Reload", { reloading( false ), reply() } );
   PrivateBusRecord record( bus );
   EXPECT_EXIT(
      {
         // sd-bus refuses a connection that was made before a fork.
         const Tessel::Ptr< Sdbus > ownClient = sdbusFactory();
         ownClient->managerCall( "Reload", false );
      },
      testing::KilledBySignal( SIGABRT ),
      testing::ResultOf(
         []( const std::string& output ) {
            return std::regex_replace( output, std::regex( "cpp:[0-9]+:" ), "cpp:LINE:" );
         },
         "src/Sodrel/Sodrel.cpp:LINE: void Sodrel::Sdbus::managerCall(const String&, bool): "
         "Assertion `signalMonitor->wait( std::nullopt )' failed.\n" ) );
   EXPECT_EQ( reloads( record ), 2 );
}

TEST_F( AWaitForAReload, failsWhereASignalCannotBeRead ) {
   for( const Body& odd : std::vector< Body >{ {},
                                               body( "s", "true" ),
                                               body( "u", 1 ),
                                               body( "v", "b", true ),
                                               body( "(b)", true ) } ) {
      SCOPED_TRACE( odd.signature );
      manager.onCall(
         "Reload", { reloading( true ), signal( "Reloading", odd ), reloading( false ), reply() } );
      EXPECT_EQ( reload(), waiting + "callback handling failed" );
   }
}

TEST_F( AWaitForAReload, hearsNobodyButTheManagerAndItsObject ) {
   PrivateBusRecord record( bus );
   manager.onCall(
      "Reload",
      { byStranger( reloading( false ) ), byStranger( signal( "Reloading", {} ) ),
        signal( unitPath( "web.service" ), managerInterface, "Reloading", body( "b", false ) ),
        signal( managerPath, unitInterface, "Reloading", body( "b", false ) ), reloading( true ),
        reply(), reloading( false ) } );
   EXPECT_EQ( reload(), "reloaded" );
   EXPECT_EQ( reloads( record ), 1 );
}

TEST_F( AWaitForAReload, runsOutOfTimeWhereTheReloadDoesNotEnd ) {
   moments.hurryWaits( true );
   for( const Script& script : std::vector< Script >{
           { reply() },
           { reloading( true ), reply() },
           { reloading( false ), reloading( true ), reply() },
           { byStranger( reloading( true ) ), byStranger( reloading( false ) ), reply() } } ) {
      manager.onCall( "Reload", script );
      EXPECT_EQ( reload(), waiting + "600.000000 timeout" );
   }
}

TEST_F( AWaitForAReload, needsASubscriberWhichARenewedConnectionHasLost ) {
   const std::string timeout = waiting + "600.000000 timeout";
   moments.hurryWaits( true );
   EXPECT_EQ( reload(), timeout );
   subscribe();
   EXPECT_EQ( reload(), "reloaded" );
   EXPECT_EQ(
      outcomeOf( [&]() -> Tessel::String {
         subscribe();
         return "";
      } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Subscribe failed: "
      "Client is already subscribed." );

   sd_bus_close( client->sdbus() );
   EXPECT_EQ( reload(), timeout );
   subscribe();
   EXPECT_EQ( reload(), "reloaded" );
}

TEST_F( AWaitForAReload, isServedByTheSubscriptionOfAnother ) {
   const Tessel::Ptr< Sdbus > other = sdbusFactory();
   other->managerCall( "Subscribe", true );
   EXPECT_EQ( reload(), "reloaded" );
}

TEST_F( AWaitForAReload, beginsAnewEachTime ) {
   // Signals that come between two calls belong to neither.
   manager.onCall( "Reload", { reloading( true ), reloading( false ), reply() } );
   EXPECT_EQ( reload(), "reloaded" );
   manager.run( { reloading( true ) } );
   moments.hurryWaits( true );
   manager.onCall( "Reload", { reply() } );
   EXPECT_EQ( reload(), waiting + "600.000000 timeout" );
}

} // namespace

} // namespace Sodrel::Test
