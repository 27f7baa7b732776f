// The loss of the manager's name, and the replacement of a connection during an operation.
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <support/PrivateBusRecord.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

const std::string readFailed =
   callFailed + "managerPropertyS, manager property SystemState read failed";

struct AClientsConnection : ALibraryClient {
   // Makes the probe fail that follows this many others.
   void expireAfter( int probes ) {
      for( int i = 0; i < probes; ++i ) {
         manager.onCall( "Get SystemState", { alive() } );
      }
      manager.onCall( "Get SystemState", { error( "org.example.Expired" ) } );
   }
};

TEST_F( AClientsConnection, isRenewedAtEachOperationAsLongAsTheManagerHasNoName ) {
   manager.run( { releaseName() } );
   for( int i = 0; i < 2; ++i ) {
      moments.clear();
      EXPECT_EQ( systemState(), readFailed + nameIsGone );
      EXPECT_THAT(
         moments.lines(), ElementsAre(
                             "managerPropertyS/8: Get SystemState manager property with sd-bus",
                             "sdbus/5: Reconnect sd-bus, older connection expired: 113" ) );
   }
   EXPECT_EQ( reload(), callFailed + "asyncManagerCall, sd-bus call Reload failed" + nameIsGone );
   EXPECT_EQ( outcomeOf( "creation" ), readFailed + nameIsGone );

   manager.run( { acquireName() } );
   EXPECT_EQ( systemState(), "running" );
   moments.clear();
   EXPECT_EQ( systemState(), "running" );
   EXPECT_EQ( moments.lines().size(), 1U );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 1 ) );
}

TEST_F( AClientsConnection, stillGetsTheReplyOfAManagerThatHasLostItsName ) {
   moments.hurryWaits( true );
   moments.atReading( 1, [&] { manager.run( {} ); } );
   // A signal, however, needs the name.
   EXPECT_EQ(
      callScripted(
         "StartUnit", { releaseName(), replyJob( 7 ), jobRemoved( 7, "done" ), acquireName() } ),
      syncFailed + "JobRemovedMonitor::wait, 600.000000 timeout for " + jobOf( 7 ) );
}

TEST_F( AClientsConnection, receivesSignalsOfTheNextOwnerOfTheName ) {
   EXPECT_EQ(
      callScripted(
         "StartUnit", { replyJob( 7 ), disconnect(), connect(), jobRemoved( 7, "done" ) } ),
      jobOf( 7 ) );
}

TEST_F( AClientsConnection, isKeptByAFailedCall ) {
   sd_bus* const before = client->sdbus();
   call( "StartUnit", "no.service" );
   outcomeOf( "managerPropertyS NoSuch" );
   EXPECT_EQ( client->sdbus(), before );
   EXPECT_THAT( moments.lines(), testing::Not( testing::Contains( StartsWith( "sdbus/5" ) ) ) );
}

TEST_F( AClientsConnection, cannotBeMadeWithoutABus ) {
   bus.kill();
   EXPECT_EQ( outcomeOf( "creation" ), notOpened + ": Connection refused" );
   EXPECT_EQ( systemState(), notOpened + ": Connection refused" );
   moments.clear();
   EXPECT_EQ( systemState(), notOpened + ": Connection refused" );
   // There was no connection left to replace.
   EXPECT_EQ( moments.lines().size(), 1U );

   bus.start();
   manager.run( { connect() } );
   EXPECT_EQ( systemState(), "running" );
   EXPECT_EQ( moments.lines().size(), 2U );
}

TEST_F( AClientsConnection, reportsTheSystemsErrorIfTheAddressLeadsNowhere ) {
   const std::pair< const char*, std::string > addresses[]{
      { "unix:path=/nonexistent/socket", "No such file or directory" },
      { "unix:abstract=sodrel-test-nobody", "Connection refused" },
   };
   for( const auto& [address, text] : addresses ) {
      setenv( "DBUS_SYSTEM_BUS_ADDRESS", address, 1 );
      EXPECT_EQ( outcomeOf( "creation" ), notOpened + ": " + text );
   }
   setenv( "DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1 );
}

// The look-up of the unit finds the connection dead on which the monitor would have been created.
// As its last user, the look-up frees the connection.
TEST_F( AClientsConnection, thatTheLookUpOfAUnitRenewsCarriesTheMonitor ) {
   subscribe();
   const Tessel::Ptr< Sdbus > subscriber = sdbusFactory();
   subscriber->managerCall( "Subscribe", true );
   PrivateBusRecord record( bus );
   expireAfter( 1 );
   moments.clear();

   EXPECT_EQ( call( "ReloadUnit" ), jobOf( 1 ) );

   const std::string path = unitPath( "web.service" );
   EXPECT_THAT(
      moments.lines(),
      ElementsAre(
         "managerCallSsO/8: Call sd-bus systemd manager ReloadUnit web.service replace, "
         "async=false",
         "asyncManagerCallSO/8: ", "sdbus/5: Reconnect sd-bus, older connection expired: 5",
         "handleInitialized/8: Initialize UnitReloadingMonitor for " + path,
         "asyncManagerCallSsO/8: ", "wait/8: Wait for PropertiesChanged signal",
         "handleDeleted/8: Deinitialize UnitReloadingMonitor for " + path ) );
   const std::string probe = "Get org.freedesktop.systemd1.Manager SystemState";
   EXPECT_THAT(
      record.texts(), ElementsAre(
                         probe, probe, "GetUnit web.service", StartsWith( "AddMatch" ), probe,
                         "ReloadUnit web.service replace", StartsWith( "RemoveMatch" ) ) );
   // The first two messages went over the old connection, all others over the new one.
   const std::vector< RecordedCall >& calls = record.calls();
   for( size_t i = 0; i < calls.size(); ++i ) {
      EXPECT_EQ( calls[i].sender == calls[0].sender, i < 2 );
      EXPECT_EQ( calls[i].sender == calls[2].sender, i >= 2 );
   }
}

TEST_F( AClientsConnection, thatTheLookUpOfAUnitFindsClosedCarriesTheMonitor ) {
   const Tessel::Ptr< Sdbus > subscriber = sdbusFactory();
   subscriber->managerCall( "Subscribe", true );
   for( const std::string method : { "ReloadUnit", "ReloadOrRestartUnit" } ) {
      sd_bus* const raw = client->sdbus();
      moments.clear();
      moments.atTrace( 2, [&] { sd_bus_close( raw ); } );
      EXPECT_THAT( call( method ), StartsWith( "/org/freedesktop/systemd1/job/" ) );
      EXPECT_EQ( moments.lines()[2], "sdbus/5: Reconnect sd-bus, older connection expired: 107" );
   }
}

TEST_F( AClientsConnection, thatIsRenewedUnderAMonitorLeavesItToReportTheLoss ) {
   struct Wait {
      std::string operation;
      int probes;
      std::string monitor;
      std::string call;
   };
   subscribe();
   for( const Wait& wait : {
           Wait{ "managerCallSsO StartUnit x replace", 1, "JobRemoved", "StartUnit x replace" },
           Wait{ "managerCallSsO ReloadUnit web.service replace", 2, "UnitReloading",
                 "ReloadUnit web.service replace" },
           Wait{ "managerCall Reload", 1, "DaemonReloading", "Reload" },
        } ) {
      expireAfter( wait.probes );
      manager.onCall( "StartUnit", { replyJob( 7 ) } );
      PrivateBusRecord record( bus );
      EXPECT_EQ(
         outcomeOf( wait.operation ),
         syncFailed + wait.monitor + "Monitor::wait, sd_bus_process failed" + reset );
      // The call is nevertheless sent on the new connection.
      EXPECT_THAT( record.texts(), testing::Contains( wait.call ) );
      EXPECT_EQ( systemState(), "running" );
   }
}

} // namespace

} // namespace SodrelTest
