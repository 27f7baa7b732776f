// What the scripted manager does when a test tells it.
#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>

#include <support/ChildProcess.h>

#include "SupportFixtures.h"

namespace Sodrel::Test {

using ::testing::ElementsAre;

TEST_F( AScriptedManager, answersEachCallByItsOwnScriptThenByTheLastingOneElseAsSystemd ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ), jobRemoved( 7, "skipped" ) } );
   manager.onCall( "StartUnit", { standard() } );
   manager.onEveryCall( "StartUnit", { error( "org.example.Refused", "Refused." ) } );
   manager.onCall( "StopUnit", { error( "org.example.Silent" ) } );
   manager.onEveryCall( "Get SystemState", { reply( body( "v", "s", "degraded" ) ) } );
   Client client;
   EXPECT_EQ(
      client.call( "StartUnit", "web.service", "replace" ), "/org/freedesktop/systemd1/job/7" );
   EXPECT_EQ(
      client.call( "StartUnit", "web.service", "replace" ), "/org/freedesktop/systemd1/job/1" );
   EXPECT_EQ(
      client.call( "StartUnit", "web.service", "replace" ), "org.example.Refused: Refused." );
   EXPECT_EQ(
      client.call( "StartUnit", "web.service", "replace" ), "org.example.Refused: Refused." );
   EXPECT_EQ( client.call( "StopUnit", "web.service", "replace" ), "org.example.Silent: (none)" );
   EXPECT_EQ(
      client.call( "StopUnit", "web.service", "replace" ), "/org/freedesktop/systemd1/job/2" );
   EXPECT_EQ( client.property( managerPath, managerInterface, "SystemState" ), "degraded" );
}

TEST_F( AScriptedManager, sendsAnyBodyUnderAnySignature ) {
   manager.onCall(
      "Odd", {
                signal( "Reloading", body( "s", "yes" ) ),
                signal( "Reloading", {} ),
                signal( "JobRemoved", body( "ub", 7, true ) ),
                propertiesChanged(
                   "web.service", body( "sa{sv}as", unitInterface, 1, "ActiveState", "u", 5, 0 ) ),
                propertiesChanged( "web.service", body( "a(so)t", 2, "a", "/a", "b", "/b", 1 ) ),
                reply( body( "b", false ) ),
             } );
   Client client;
   client.send( "Odd" );
   manager.awaitCall( "Odd" );
   EXPECT_THAT(
      client.taken(), ElementsAre(
                         "Reloading yes", "Reloading", "JobRemoved 7 true",
                         "PropertiesChanged org.freedesktop.systemd1.Unit ActiveState 5",
                         "PropertiesChanged a /a b /b 1", "reply false" ) );
}

TEST_F( AScriptedManager, ordersReloadingAndReplyAsTheTestLikes ) {
   manager.onCall( "Reload", { reloading( false ), reply(), reloading( true ) } );
   Client client;
   client.send( "Reload" );
   manager.awaitCall( "Reload" );
   EXPECT_THAT( client.taken(), ElementsAre( "Reloading false", "reply ", "Reloading true" ) );
}

TEST_F( AScriptedManager, signalsAtOnceWhenTheTestAsksForIt ) {
   Client client;
   manager.run( { reloading( true ), activeState( "web.service", "failed" ) } );
   EXPECT_THAT(
      client.taken(),
      ElementsAre(
         "Reloading true", "PropertiesChanged org.freedesktop.systemd1.Service MainPID 0",
         "PropertiesChanged org.freedesktop.systemd1.Unit ActiveState failed "
         "StateChangeTimestamp 0 Conditions" ) );
}

TEST_F( AScriptedManager, holdsTheRestOfAScriptUntilItsEvent ) {
   manager.onCall( "StartUnit", { queueJob(), hold( "go" ), finishJob( "canceled" ) } );
   manager.onCall( "Reload", { hold( "GetUnit" ), reply() } );
   Client client;
   client.send( "StartUnit", "idle.service", "replace" );
   client.send( "Reload" );
   manager.awaitCall( "Reload" );
   const std::string job = "/org/freedesktop/systemd1/job/1";
   EXPECT_THAT( client.taken(), ElementsAre( "reply " + job ) );
   EXPECT_EQ( client.property( job, "org.freedesktop.systemd1.Job", "JobType" ), "start" );
   client.taken();

   manager.run( { raise( "go" ) } );
   EXPECT_THAT( client.taken(), ElementsAre( "JobRemoved 1 " + job + " idle.service canceled" ) );

   client.send( "GetUnit", "web.service" );
   manager.awaitCall( "GetUnit" );
   EXPECT_THAT( client.taken(), ElementsAre( "reply ", "reply " + unitPath( "web.service" ) ) );
}

TEST_F( AScriptedManager, letsACallTimeOutAndRepliesTooLate ) {
   manager.onCall( "Reload", { hold( "late" ), reply() } );
   Client client;
   checked( sd_bus_set_method_call_timeout( client.raw(), 1000 ), "timeout" );
   EXPECT_EQ( client.call( "Reload" ), "org.freedesktop.DBus.Error.Timeout: Connection timed out" );
   manager.awaitCall( "Reload" );
   manager.run( { raise( "late" ) } );
   EXPECT_THAT( client.taken(), ElementsAre( "reply " ) );
}

TEST_F( AScriptedManager, actsWhileAClientInAnotherProcessIsBlocked ) {
   manager.onCall( "Reload", {} );
   manager.onCall( "StartUnit", { hold( "go" ), reply( jobPath( 9 ) ) } );
   ChildProcess blocked( [] {
      Client client;
      return client.call( "StartUnit", "x.service", "replace" ) == jobPath( 9 ).values[0] ? 0 : 1;
   } );
   manager.awaitCall( "StartUnit" );
   manager.run( { raise( "go" ) } );
   EXPECT_EQ( blocked.wait(), 0 );
}

TEST_F( AScriptedManager, floodsAClientWithForeignJobs ) {
   Client client;
   manager.run( { foreignJobs( 1000, 20000 ), jobRemoved( 7, "done" ) } );
   const Texts received = client.taken( 20001 );
   ASSERT_EQ( received.size(), 20001U );
   EXPECT_EQ( received[0], "JobRemoved 1000 " + jobPath( 1000 ).values[0] + " any.service done" );
   EXPECT_EQ(
      received[19999], "JobRemoved 20999 " + jobPath( 20999 ).values[0] + " any.service done" );
   EXPECT_EQ( received[20000], "JobRemoved 7 " + jobPath( 7 ).values[0] + " any.service done" );
}

TEST_F( AScriptedManager, letsAStrangerSignalWhomOnlyMatchesWithoutASenderHear ) {
   Client client;
   manager.run( { byStranger( reloading( true ) ), reloading( false ) } );
   EXPECT_THAT( client.taken(), ElementsAre( "Reloading false" ) );

   checked(
      sd_bus_add_match( client.raw(), nullptr, "member='Reloading'", nullptr, nullptr ), "match" );
   manager.run( { byStranger( reloading( true ) ), reloading( false ) } );
   EXPECT_THAT( client.taken(), ElementsAre( "Reloading true", "Reloading false" ) );
}

TEST_F( AScriptedManager, losesItsNameAndRegainsIt ) {
   const std::string gone =
      "org.freedesktop.DBus.Error.ServiceUnknown: The name org.freedesktop.systemd1 was not "
      "provided by any .service files";
   Client client;
   client.call( "Subscribe" );
   manager.run( { releaseName() } );
   EXPECT_EQ( client.call( "GetUnit", "web.service" ), gone );
   manager.run( { acquireName() } );
   EXPECT_EQ( client.call( "GetUnit", "web.service" ), unitPath( "web.service" ) );

   manager.run( { disconnect() } );
   EXPECT_EQ( client.call( "GetUnit", "web.service" ), gone );
   manager.run( { connect() } );
   EXPECT_EQ( client.call( "Subscribe" ), "" );
}

TEST_F( AScriptedManager, diesAfterAnyMessageOfItsScript ) {
   const Script script{ reloading( true ), reloading( false ), reply() };
   const Texts messages{ "Reloading true", "Reloading false", "reply " };
   for( size_t kept = 0; kept <= script.size(); ++kept ) {
      SCOPED_TRACE( kept );
      Script cut( script.begin(), script.begin() + static_cast< std::ptrdiff_t >( kept ) );
      cut.push_back( die() );
      manager.onCall( "Reload", cut );
      Client client;
      client.send( "Reload" );
      manager.awaitEnd();
      EXPECT_THROW( manager.run( {} ), std::runtime_error );
      Texts expected( messages.begin(), messages.begin() + static_cast< std::ptrdiff_t >( kept ) );
      if( kept < script.size() ) {
         expected.push_back( "reply org.freedesktop.DBus.Error.NoReply" );
      }
      EXPECT_EQ( client.taken( expected.size() ), expected );
      manager.start();
   }
}

TEST_F( AScriptedManager, diesWhenTheTestAsksForIt ) {
   manager.run( { die() } );
   manager.awaitEnd();
   EXPECT_THROW( manager.run( {} ), std::runtime_error );
   manager.start();
   manager.kill();
   manager.start();
   EXPECT_EQ( Client().call( "GetUnit", "web.service" ), unitPath( "web.service" ) );
}

TEST_F( AScriptedManager, killsTheBusAtAPointOfItsScriptAndOutlivesIt ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ), killBus() } );
   Client client;
   client.send( "StartUnit", "web.service", "replace" );
   manager.awaitCall( "StartUnit" );
   EXPECT_THAT(
      client.taken( 2 ), ElementsAre( "reply /org/freedesktop/systemd1/job/7", "Disconnected" ) );
   EXPECT_EQ( sd_bus_process( client.raw(), nullptr ), -ECONNRESET );

   bus.start();
   manager.run( { connect() } );
   EXPECT_EQ( Client().call( "GetUnit", "web.service" ), unitPath( "web.service" ) );
}

} // namespace Sodrel::Test
