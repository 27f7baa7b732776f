// Waits for a reload of the manager, with signals in orders that systemd does not produce.
#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include <support/PrivateBusRecord.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

const std::string waiting = syncFailed + "DaemonReloadingMonitor::wait, ";
const std::string timeout = waiting + "600.000000 timeout";

const Script done{ reloading( true ), reloading( false ), reply() };
const Script endOnly{ reloading( false ), reply() };

class AWaitForAReload : public ALibraryClient {
 protected:
   // Returns how often "Reload" has been called since this function was last called.
   long reloads() {
      const Texts texts = record.texts();
      record.clear();
      return std::ranges::count( texts, "Reload" );
   }

   PrivateBusRecord record{ bus };
};

TEST_F( AWaitForAReload, endsAfterAStartAndAnEndInAnyOfTheseOrders ) {
   for( const Script& script : std::vector< Script >{
           done,
           { reloading( true ), reply(), reloading( false ) },
           { reply(), reloading( true ), reloading( false ) },
           { reloading( true ), reloading( true ), reloading( false ), reply() },
           { reloading( true ), reloading( false ), reloading( false ), reply() },
           { reloading( true ), reloading( false ), reloading( true ), reply() },
           // The end of another client's reload comes first.
           { reloading( false ), reloading( true ), reloading( false ), reply() },
           { reloading( false ), reloading( true ), reply(), reloading( false ) },
        } ) {
      EXPECT_EQ( callScripted( "Reload", script ), "called" );
      EXPECT_EQ( reloads(), 1 );
   }
}

TEST_F( AWaitForAReload, callsAgainAfterAnEndWithoutAStart ) {
   const Script again{ reloading( false ), reloading( false ), reply() };
   for( const Script& first : { endOnly, { reply(), reloading( false ) }, again } ) {
      manager.onCall( "Reload", first );
      EXPECT_EQ( callScripted( "Reload", done ), "called" );
      EXPECT_EQ( reloads(), 2 );
   }
}

TEST_F( AWaitForAReload, passesOnWhatTheSecondCallOrItsWaitThrows ) {
   manager.onCall( "Reload", endOnly );
   EXPECT_EQ(
      callScripted( "Reload", { error( "org.example.No", "Not again." ) } ),
      callFailed + "asyncManagerCall, sd-bus call Reload failed: Not again." );
   EXPECT_EQ( reloads(), 2 );
   manager.onCall( "Reload", endOnly );
   EXPECT_EQ(
      callScripted( "Reload", { signal( "Reloading", body( "s", "true" ) ), reply() } ),
      waiting + "callback handling failed" );
   EXPECT_EQ( reloads(), 2 );
}

TEST_F( AWaitForAReload, endsTheProcessAfterTheSecondEndWithoutAStart ) {
   manager.onEveryCall( "Reload", endOnly );
   EXPECT_EXIT(
      {
         // sd-bus refuses a connection that was opened before a fork.
         const Tessel::Ptr< Sdbus > ownClient = sdbusFactory();
         ownClient->managerCall( "Reload", false );
      },
      testing::KilledBySignal( SIGABRT ), assertionOfReload() );
   EXPECT_EQ( reloads(), 2 );
}

TEST_F( AWaitForAReload, failsIfASignalCannotBeRead ) {
   for( const Body& odd : std::vector< Body >{ {},
                                               body( "s", "true" ),
                                               body( "u", 1 ),
                                               body( "v", "b", true ),
                                               body( "(b)", true ) } ) {
      SCOPED_TRACE( odd.signature );
      EXPECT_EQ(
         callScripted(
            "Reload",
            { reloading( true ), signal( "Reloading", odd ), reloading( false ), reply() } ),
         waiting + "callback handling failed" );
   }
}

TEST_F( AWaitForAReload, ignoresSignalsOfOtherSendersAndObjects ) {
   const Body ended = body( "b", false );
   EXPECT_EQ(
      callScripted(
         "Reload", { byStranger( reloading( false ) ), byStranger( signal( "Reloading", {} ) ),
                     signal( unitPath( "web.service" ), managerInterface, "Reloading", ended ),
                     signal( managerPath, unitInterface, "Reloading", ended ), reloading( true ),
                     reply(), reloading( false ) } ),
      "called" );
   EXPECT_EQ( reloads(), 1 );
}

TEST_F( AWaitForAReload, timesOutIfTheReloadDoesNotEnd ) {
   moments.hurryWaits( true );
   // Signals received before the call do not count.
   manager.run( { reloading( true ), reloading( false ) } );
   for( const Script& script : std::vector< Script >{
           { reply() },
           { reloading( true ), reply() },
           { reloading( false ), reloading( true ), reply() },
           { byStranger( reloading( true ) ), byStranger( reloading( false ) ), reply() } } ) {
      EXPECT_EQ( callScripted( "Reload", script ), timeout );
   }
}

TEST_F( AWaitForAReload, needsASubscriberAndLosesItsOwnWithTheConnection ) {
   moments.hurryWaits( true );
   EXPECT_EQ( reload(), timeout );
   subscribe();
   EXPECT_EQ( reload(), "called" );
   EXPECT_EQ(
      outcomeOf( "asyncManagerCall Subscribe" ),
      callFailed +
         "asyncManagerCall, sd-bus call Subscribe failed: Client is already subscribed." );
   sd_bus_close( client->sdbus() );
   EXPECT_EQ( reload(), timeout );

   const Tessel::Ptr< Sdbus > other = sdbusFactory();
   other->managerCall( "Subscribe", true );
   EXPECT_EQ( reload(), "called" );
}

} // namespace

} // namespace SodrelTest
