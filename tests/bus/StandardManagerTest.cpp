// What the scripted manager does without a script: the behaviour of systemd.
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "SupportFixtures.h"

namespace Sodrel::Test {

using ::testing::ElementsAre;
using ::testing::SizeIs;

TEST_F( AScriptedManager, servesPropertiesOfTheManagerAndOfUnits ) {
   Client client;
   EXPECT_EQ( client.property( managerPath, managerInterface, "SystemState" ), "running" );
   EXPECT_EQ( client.property( managerPath, managerInterface, "ShowStatus" ), "true" );
   EXPECT_EQ( client.call( "GetUnit", "web.service" ), unitPath( "web.service" ) );
   EXPECT_EQ(
      client.property( unitPath( "web.service" ), unitInterface, "ActiveState" ), "active" );
}

TEST_F( AScriptedManager, refusesWhatSystemdRefusesInItsWords ) {
   Client client;
   EXPECT_EQ(
      client.call( "GetUnit", "no.service" ),
      "org.freedesktop.systemd1.NoSuchUnit: Unit no.service not loaded." );
   EXPECT_EQ(
      client.call( "StartUnit", "no.service", "replace" ),
      "org.freedesktop.systemd1.NoSuchUnit: Unit no.service not found." );
   EXPECT_EQ(
      client.call( "StartUnit", "web.service", "never" ),
      "org.freedesktop.DBus.Error.InvalidArgs: Job mode never invalid" );
   EXPECT_EQ(
      client.call( "ReloadUnit", "simple.service", "replace" ),
      "org.freedesktop.systemd1.JobTypeNotApplicable: "
      "Job type reload is not applicable for unit simple.service." );
   EXPECT_EQ(
      client.call( "StartUnit", "web.service" ),
      "org.freedesktop.DBus.Error.InvalidArgs: "
      "Invalid arguments 's' to call org.freedesktop.systemd1.Manager.StartUnit(), "
      "expecting 'ss'." );
   EXPECT_EQ(
      client.property( managerPath, managerInterface, "NoSuch" ),
      "org.freedesktop.DBus.Error.UnknownProperty: "
      "Unknown interface org.freedesktop.systemd1.Manager or property NoSuch." );
}

TEST_F( AScriptedManager, queuesAJobRepliesAndReportsItsEndToANonSubscriber ) {
   Client client;
   client.send( "StartUnit", "idle.service", "replace" );
   manager.awaitCall( "StartUnit" );
   EXPECT_THAT(
      client.taken(), ElementsAre(
                         "reply /org/freedesktop/systemd1/job/1",
                         "JobRemoved 1 /org/freedesktop/systemd1/job/1 idle.service done" ) );
   EXPECT_EQ(
      client.property( unitPath( "idle.service" ), unitInterface, "ActiveState" ), "active" );
}

TEST_F( AScriptedManager, tellsSubscribersOfEveryChangeOfState ) {
   Client client;
   EXPECT_EQ( client.call( "Subscribe" ), "" );
   client.send( "RestartUnit", "web.service", "replace" );
   manager.awaitCall( "RestartUnit" );
   const std::string job = "/org/freedesktop/systemd1/job/1";
   const std::string service = "PropertiesChanged org.freedesktop.systemd1.Service MainPID 0";
   const auto unit = []( const std::string& state ) {
      return "PropertiesChanged org.freedesktop.systemd1.Unit ActiveState " + state +
             " StateChangeTimestamp 0 Conditions";
   };
   EXPECT_THAT(
      client.taken(), ElementsAre(
                         service, unit( "active" ), "reply " + job, service, unit( "deactivating" ),
                         service, unit( "inactive" ), service, unit( "activating" ), service,
                         unit( "active" ), "JobRemoved 1 " + job + " web.service done" ) );
}

struct JobCase {
   const char* method;
   const char* unit;
   std::vector< std::string > states;
   const char* result;
};

class AScriptedManagersJob : public AScriptedManager,
                             public testing::WithParamInterface< JobCase > {};

TEST_P( AScriptedManagersJob, goesThroughTheStatesOfARealOne ) {
   Client client;
   client.call( "Subscribe" );
   client.send( GetParam().method, GetParam().unit, "replace" );
   manager.awaitCall( GetParam().method );
   Texts states;
   std::string last;
   const std::string before = "PropertiesChanged org.freedesktop.systemd1.Unit ActiveState ";
   for( const std::string& text : client.taken() ) {
      if( text.starts_with( before ) ) {
         states.push_back(
            text.substr( before.size(), text.find( ' ', before.size() ) - before.size() ) );
      }
      last = text;
   }
   EXPECT_EQ( states, GetParam().states );
   EXPECT_EQ(
      last, std::string( "JobRemoved 1 /org/freedesktop/systemd1/job/1 " ) + GetParam().unit + " " +
               GetParam().result );
}

INSTANTIATE_TEST_SUITE_P(
   OfEachKind, AScriptedManagersJob,
   testing::Values(
      JobCase{ "StartUnit", "idle.service", { "inactive", "activating", "active" }, "done" },
      JobCase{ "StartUnit", "web.service", { "active" }, "done" },
      JobCase{ "StartUnit", "crashed.service", { "failed", "activating", "failed" }, "failed" },
      JobCase{ "StopUnit", "web.service", { "active", "deactivating", "inactive" }, "done" },
      JobCase{ "StopUnit", "idle.service", { "inactive" }, "done" },
      JobCase{ "TryRestartUnit", "idle.service", { "inactive" }, "done" },
      JobCase{ "ReloadUnit", "web.service", { "active", "reloading", "active" }, "done" },
      JobCase{ "ReloadUnit", "idle.service", { "inactive" }, "invalid" },
      JobCase{ "ReloadOrRestartUnit",
               "simple.service",
               { "active", "deactivating", "inactive", "active" },
               "done" },
      JobCase{
         "ReloadOrRestartUnit", "idle.service", { "inactive", "activating", "active" }, "done" },
      JobCase{ "ReloadOrTryRestartUnit", "idle.service", { "inactive" }, "done" },
      JobCase{
         "ReloadOrTryRestartUnit", "web.service", { "active", "reloading", "active" }, "done" } ) );

TEST_F( AScriptedManager, reloadsSilentlyWithoutAnySubscriber ) {
   Client client;
   client.send( "Reload" );
   manager.awaitCall( "Reload" );
   EXPECT_THAT( client.taken(), ElementsAre( "reply " ) );
}

TEST_F( AScriptedManager, reportsAReloadToAllOnceOneHasSubscribed ) {
   Client subscriber;
   Client other;
   EXPECT_EQ( subscriber.call( "Subscribe" ), "" );
   EXPECT_EQ(
      subscriber.call( "Subscribe" ),
      "org.freedesktop.systemd1.AlreadySubscribed: Client is already subscribed." );
   other.send( "Reload" );
   manager.awaitCall( "Reload" );
   EXPECT_THAT( other.taken(), ElementsAre( "Reloading true", "Reloading false", "reply " ) );
   EXPECT_THAT( subscriber.taken(), ElementsAre( "Reloading true", "Reloading false" ) );

   EXPECT_EQ( subscriber.call( "Unsubscribe" ), "" );
   EXPECT_EQ(
      subscriber.call( "Unsubscribe" ),
      "org.freedesktop.systemd1.NotSubscribed: Client is not subscribed." );
   other.send( "Reload" );
   manager.awaitCall( "Reload", 2 );
   EXPECT_THAT( other.taken(), ElementsAre( "reply " ) );
}

TEST_F( AScriptedManager, forgetsASubscriberWhoseConnectionHasEnded ) {
   Client client;
   {
      Client subscriber;
      // A manager started now could hold a copy of the connection, which would then never end.
      manager.start();
      EXPECT_EQ( subscriber.call( "Subscribe" ), "" );
      checked(
         sd_bus_match_signal(
            client.raw(), nullptr, "org.freedesktop.DBus", nullptr, nullptr, "NameOwnerChanged",
            nullptr, nullptr ),
         "sd_bus_match_signal" );
   }
   EXPECT_THAT( client.taken( 1 ), SizeIs( 1 ) );
   client.send( "Reload" );
   manager.awaitCall( "Reload" );
   EXPECT_THAT( client.taken(), ElementsAre( "reply " ) );
}

} // namespace Sodrel::Test
