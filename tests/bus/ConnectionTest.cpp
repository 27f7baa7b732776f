// The loss of the manager's name, and the renewal of a connection in the midst of an operation.
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <support/PrivateBusRecord.h>

#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

using ::testing::ElementsAre;

const std::string nameIsGone = ": The name org.freedesktop.systemd1 was not provided by any "
                               ".service files";

struct AClientsConnection : ALibraryClient {};

TEST_F( AClientsConnection, isRenewedAtEachOperationAsLongAsTheManagerHasNoName ) {
   manager.run( { releaseName() } );
   for( int i = 0; i < 2; ++i ) {
      moments.clear();
      EXPECT_EQ(
         systemState(), "Sodrel::SdbusCallException: Sdbus::managerPropertyS, manager property "
                        "SystemState read failed" +
                           nameIsGone );
      EXPECT_THAT(
         moments.lines(), ElementsAre(
                             "managerPropertyS/8: Get SystemState manager property with sd-bus",
                             "sdbus/5: Reconnect sd-bus, older connection expired: 113" ) );
   }
   // Until a call says otherwise, the wait for its effect is possible.
   EXPECT_EQ(
      reload(), "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Reload failed" +
                   nameIsGone );
   EXPECT_EQ(
      creation(),
      "Sodrel::SdbusCallException: Sdbus::managerPropertyS, manager property SystemState read "
      "failed" +
         nameIsGone );

   manager.run( { acquireName() } );
   EXPECT_EQ( systemState(), "running" );
   moments.clear();
   EXPECT_EQ( systemState(), "running" );
   EXPECT_EQ( moments.lines().size(), 1U );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 1 ) );
}

TEST_F( AClientsConnection, stillGetsTheReplyOfAManagerThatHasLostItsName ) {
   manager.onCall(
      "StartUnit",
      { releaseName(), reply( jobPath( 7 ) ), jobRemoved( 7, "done" ), acquireName() } );
   moments.hurryWaits( true );
   moments.atReading( 1, [&] { manager.run( {} ); } );
   // But a signal needs the name.
   EXPECT_EQ(
      call( "StartUnit" ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, 600.000000 timeout for " + jobOf( 7 ) );
}

TEST_F( AClientsConnection, hearsTheNextOwnerOfTheName ) {
   manager.onCall(
      "StartUnit", { reply( jobPath( 7 ) ), disconnect(), connect(), jobRemoved( 7, "done" ) } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AClientsConnection, isKeptByAFailedCall ) {
   sd_bus* const bus1 = client->sdbus();
   call( "StartUnit", "no.service" );
   outcomeOf( [&] { return client->managerPropertyS( "NoSuch" ); } );
   EXPECT_EQ( client->sdbus(), bus1 );
   EXPECT_THAT(
      moments.lines(), testing::Not( testing::Contains( testing::StartsWith( "sdbus/5" ) ) ) );
}

TEST_F( AClientsConnection, cannotBeMadeWithoutABus ) {
   bus.kill();
   const std::string refused = "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize "
                               "sd-bus: Connection refused";
   EXPECT_EQ( creation(), refused );
   EXPECT_EQ( systemState(), refused );
   moments.clear();
   EXPECT_EQ( systemState(), refused );
   // There was nothing left to renew.
   EXPECT_EQ( moments.lines().size(), 1U );

   bus.start();
   manager.run( { connect() } );
   EXPECT_EQ( systemState(), "running" );
   EXPECT_EQ( moments.lines().size(), 2U );
}

TEST_F( AClientsConnection, isNamedAfterTheErrorOfItsSystemWhereTheAddressLeadsNowhere ) {
   const std::string before = bus.address();
   const std::pair< const char*, std::string > addresses[]{
      { "unix:path=/nonexistent/socket", "No such file or directory" },
      { "unix:path=/dev/null", "Connection refused" },

      { "unix:abstract=sodrel-test-nobody", "Connection refused" },
   };
   for( const auto& [address, text] : addresses ) {
      setenv( "DBUS_SYSTEM_BUS_ADDRESS", address, 1 );
      EXPECT_EQ(
         creation(),
         "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus: " + text );
   }
   setenv( "DBUS_SYSTEM_BUS_ADDRESS", before.c_str(), 1 );
}

// The look-up of the unit finds the connection dead on which the monitor would have been made. It
// is then the last one to use it, so that the connection is freed.
TEST_F( AClientsConnection, thatTheLookUpOfAUnitRenewsCarriesTheMonitor ) {
   subscribe();
   const Tessel::Ptr< Sdbus > subscriber = sdbusFactory();
   subscriber->managerCall( "Subscribe", true );
   PrivateBusRecord record( bus );
   manager.onCall( "Get SystemState", { alive() } );
   manager.onCall( "Get SystemState", { error( "org.example.Expired" ) } );
   moments.clear();

   EXPECT_EQ( call( "ReloadUnit" ), jobOf( 1 ) );

   EXPECT_THAT(
      moments.lines(),
      ElementsAre(
         "managerCallSsO/8: Call sd-bus systemd manager ReloadUnit web.service replace, "
         "async=false",
         "asyncManagerCallSO/8: ", "sdbus/5: Reconnect sd-bus, older connection expired: 5",
         "handleInitialized/8: Initialize UnitReloadingMonitor for " + unitPath( "web.service" ),
         "asyncManagerCallSsO/8: ", "wait/8: Wait for PropertiesChanged signal",
         "handleDeleted/8: Deinitialize UnitReloadingMonitor for " + unitPath( "web.service" ) ) );
   const std::string match =
      "Match type='signal',sender='org.freedesktop.systemd1',path='" + unitPath( "web.service" ) +
      "',interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'";
   const std::string probe = "Get org.freedesktop.systemd1.Manager SystemState";
   EXPECT_THAT(
      record.texts(), ElementsAre(
                         probe, probe, "GetUnit web.service", "Add" + match, probe,
                         "ReloadUnit web.service replace", "Remove" + match ) );
   // The first two messages went over the old connection, all others over the new one.
   const std::vector< RecordedCall >& calls = record.calls();
   EXPECT_EQ( calls[0].sender, calls[1].sender );
   EXPECT_NE( calls[1].sender, calls[2].sender );
   for( size_t i = 3; i < calls.size(); ++i ) {
      EXPECT_EQ( calls[i].sender, calls[2].sender );
   }
}

TEST_F( AClientsConnection, thatTheLookUpOfAUnitFindsClosedCarriesTheMonitor ) {
   const Tessel::Ptr< Sdbus > subscriber = sdbusFactory();
   subscriber->managerCall( "Subscribe", true );
   for( const std::string method : { "ReloadUnit", "ReloadOrRestartUnit" } ) {
      sd_bus* const raw = client->sdbus();
      moments.clear();
      moments.atTrace( 2, [&] { sd_bus_close( raw ); } );
      EXPECT_EQ( call( method ).substr( 0, 30 ), "/org/freedesktop/systemd1/job/" );
      EXPECT_EQ( moments.lines()[2], "sdbus/5: Reconnect sd-bus, older connection expired: 107" );
   }
}

TEST_F( AClientsConnection, thatIsRenewedUnderAMonitorLeavesItToReportTheLoss ) {
   subscribe();
   const std::pair< const char*, const char* > waits[]{ { "StartUnit", "JobRemovedMonitor" },
                                                        { "ReloadUnit", "UnitReloadingMonitor" } };
   for( const auto& [method, monitor] : waits ) {
      for( unsigned probes = std::string( method ) == "StartUnit" ? 1 : 2; probes > 0; --probes ) {
         manager.onCall( "Get SystemState", { alive() } );
      }
      manager.onCall( "Get SystemState", { error( "org.example.Expired" ) } );
      // The call goes out on the new connection all the same.
      PrivateBusRecord record( bus );
      EXPECT_EQ(
         call( method ), std::string( "Sodrel::SdbusSyncException: " ) + monitor +
                            "::wait, sd_bus_process failed: Connection reset by peer" );
      EXPECT_THAT(
         record.texts(), testing::Contains( method + std::string( " web.service replace" ) ) );
      EXPECT_EQ( systemState(), "running" );
   }
   manager.onCall( "Get SystemState", { alive() } );
   manager.onCall( "Get SystemState", { error( "org.example.Expired" ) } );
   EXPECT_EQ(
      reload(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, sd_bus_process failed: "
                "Connection reset by peer" );
   EXPECT_EQ( systemState(), "running" );
}

} // namespace

} // namespace Sodrel::Test
