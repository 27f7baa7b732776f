// Manager calls with a unit and a mode, waiting for their outcome or not.
#include <scripted/CallTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

using UnitCalls = CallTest;

TEST_F( UnitCalls, sendAMethodWithTwoStringsWithoutAMonitorWhenAsynchronous ) {
   EXPECT_EQ(
      client->managerCallSsO( "ReloadOrTryRestartUnit", "foo.service", "replace", true ), jobPath );
   expectLog( {
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager "
      "ReloadOrTryRestartUnit foo.service replace, async=true",
      sent(
         "asyncManagerCallSsO", "ReloadOrTryRestartUnit", "ss, foo.service, replace", "message1" ),
   } );
}

TEST_F( UnitCalls, waitForTheJobOfAnyOtherUnitMethod ) {
   for( const char* const method : { "StartUnit", "StopUnit", "RestartUnit", "reloadunit" } ) {
      script.next( "sd_bus_process", dispatches( { jobRemoved( 42, "done" ) } ) );
      EXPECT_EQ( client->managerCallSsO( method, "foo.service", "replace", false ), jobPath );
      const std::string log = takeLog();
      EXPECT_NE( log.find( "Initialize JobRemovedMonitor" ), std::string::npos ) << log;
      EXPECT_EQ( log.find( "GetUnit" ), std::string::npos ) << log;
   }
}

TEST_F( UnitCalls, startAUnitAndWaitForItsJob ) {
   script.next( "sd_bus_process", dispatches( { jobRemoved( 42, "done" ) } ) );
   EXPECT_EQ( client->managerCallSsO( "StartUnit", "foo.service", "replace", false ), jobPath );
   expectLog( {
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager StartUnit foo.service replace, "
      "async=false",
      probed( "bus1" ),
      jobMonitorBegins,
      sent( "asyncManagerCallSsO", "StartUnit", "ss, foo.service, replace", "message1" ),
      "SignalMonitor/8 wait: Wait for JobRemoved signal of /org/freedesktop/systemd1/job/42",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      jobRemovedRead,
      lastPass(),
      jobMonitorEnds,
   } );
}

TEST_F( UnitCalls, passOnTheFailureOfTheJobAndDropTheMonitor ) {
   script.next( "sd_bus_process", dispatches( { jobRemoved( 42, "failed" ) } ) );
   EXPECT_EQ(
      thrownBy(
         [this] { client->managerCallSsO( "StartUnit", "foo.service", "replace", false ); } ),
      "Sodrel::SdbusJobException: "
      "JobRemovedMonitor::wait, job /org/freedesktop/systemd1/job/42 result: failed" );
   EXPECT_TRUE( takeLog().ends_with( lastPass() + "\n" + jobMonitorEnds ) );
   EXPECT_EQ( script.alive(), "bus1" );
}

TEST_F( UnitCalls, refuseToWaitForReloadOrTryRestartUnitBeforeAnyMonitor ) {
   EXPECT_EQ(
      thrownBy( [this] {
         client->managerCallSsO( "ReloadOrTryRestartUnit", "foo.service", "replace", false );
      } ),
      "Sodrel::SdbusSyncException: "
      "Sdbus::managerCallSsO, method ReloadOrTryRestartUnit doesn't support sync operations" );
   expectLog( {
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager "
      "ReloadOrTryRestartUnit foo.service replace, async=false",
      probed( "bus1" ),
   } );
}

TEST_F( UnitCalls, askForTheUnitBeforeAReloadAndGiveTheJobOfTheReload ) {
   for( const char* const method : { "ReloadUnit", "ReloadOrRestartUnit" } ) {
      client = nullptr;
      client = createdSdbus();
      const std::string bus = script.alive();
      script.next(
         "sd_bus_process", dispatches( { unitBecomes( "reloading" ), unitBecomes( "active" ) } ) );
      EXPECT_EQ( client->managerCallSsO( method, "foo.service", "replace", false ), jobPath );
      const std::string log = takeLog();
      EXPECT_LT(
         log.find( managerCall( bus.c_str(), "GetUnit", "s, foo.service" ) ),
         log.find( managerCall( bus.c_str(), method, "ss, foo.service, replace" ) ) );
   }
}

TEST_F( UnitCalls, reloadAUnitAndWaitUntilItIsActiveAgain ) {
   script.next(
      "sd_bus_process", dispatches( { unitBecomes( "reloading" ), unitBecomes( "active" ) } ) );
   EXPECT_EQ( client->managerCallSsO( "ReloadUnit", "foo.service", "replace", false ), jobPath );
   expectLog( {
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager ReloadUnit foo.service replace, "
      "async=false",
      probed( "bus1" ),
      sent( "asyncManagerCallSO", "GetUnit", "s, foo.service", "message1" ),
      std::string( "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for " ) +
         fooPath,
      matched( "bus1", fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
      sent( "asyncManagerCallSsO", "ReloadUnit", "ss, foo.service, replace", "message2" ),
      "SignalMonitor/8 wait: Wait for PropertiesChanged signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      activeStateRead,
      activeStateRead,
      lastPass(),
      std::string( "SignalMonitor/8 handleDeleted: Deinitialize UnitReloadingMonitor for " ) +
         fooPath,
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( UnitCalls, failForAnUnknownUnitBeforeAnyMonitorAndAnyReload ) {
   script.next( "sd_bus_call_method", fails( ENOENT, "Unit nope.service not loaded." ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerCallSsO( "ReloadUnit", "nope.service", "fail", false ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit nope.service "
      "failed: Unit nope.service not loaded." );
   expectLog( {
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager ReloadUnit nope.service fail, "
      "async=false",
      probed( "bus1" ),
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "GetUnit", "s, nope.service" ),
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, Unit nope.service not loaded. )",
   } );
}

// The probe of "GetUnit" frees the connection that was fetched before it, so a monitor made on that
// one would use freed memory.
TEST_F( UnitCalls, makeTheUnitMonitorOnTheConnectionThatGetUnitRenewed ) {
   script.next( "probe", gives( "running" ) );
   script.next( "probe", fails( ENOTCONN ) );
   script.next(
      "sd_bus_process", dispatches( { unitBecomes( "reloading" ), unitBecomes( "active" ) } ) );
   EXPECT_EQ( client->managerCallSsO( "ReloadUnit", "foo.service", "replace", false ), jobPath );
   expectLog( {
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager ReloadUnit foo.service replace, "
      "async=false",
      probed( "bus1" ),
      "Sodrel/8 asyncManagerCallSO: ",
      probe( "bus1" ),
      "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: 107",
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
      managerCall( "bus2", "GetUnit", "s, foo.service" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
      std::string( "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for " ) +
         fooPath,
      matched( "bus2", fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
      "Sodrel/8 asyncManagerCallSsO: ",
      probed( "bus2" ),
      managerCall( "bus2", "ReloadUnit", "ss, foo.service, replace" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message2, o )",
      "sd_bus_message_unref( message2 )",
      "SignalMonitor/8 wait: Wait for PropertiesChanged signal",
      "steady_clock::now()",
      "sd_bus_process( bus2, null )",
      activeStateRead,
      activeStateRead,
      "sd_bus_process( bus2, null )",
      "steady_clock::now()",
      std::string( "SignalMonitor/8 handleDeleted: Deinitialize UnitReloadingMonitor for " ) +
         fooPath,
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( UnitCalls, reportTheClosedConnectionWhenTheBusWasRenewedUnderTheMonitor ) {
   script.next( "probe", gives( "running" ) );
   script.next( "probe", fails( ENOTCONN ) );
   EXPECT_EQ(
      thrownBy(
         [this] { client->managerCallSsO( "StartUnit", "foo.service", "replace", false ); } ),
      "Sodrel::SdbusSyncException: "
      "JobRemovedMonitor::wait, sd_bus_process failed: Connection reset by peer" );
   expectLog( {
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager StartUnit foo.service replace, "
      "async=false",
      probed( "bus1" ),
      jobMonitorBegins,
      "Sodrel/8 asyncManagerCallSsO: ",
      probe( "bus1" ),
      "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: 107",
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
      managerCall( "bus2", "StartUnit", "ss, foo.service, replace" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
      "SignalMonitor/8 wait: Wait for JobRemoved signal of /org/freedesktop/systemd1/job/42",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      jobMonitorEnds,
   } );
   EXPECT_EQ( script.alive(), "bus2" );
}

TEST_F( UnitCalls, endInTheTimeLimitWhenNothingIsHeardOfTheJob ) {
   EXPECT_EQ(
      thrownBy( [this] { client->managerCallSsO( "StopUnit", "foo.service", "replace", false ); } ),
      "Sodrel::SdbusSyncException: "
      "JobRemovedMonitor::wait, 600.000000 timeout for /org/freedesktop/systemd1/job/42" );
   EXPECT_EQ( script.alive(), "bus1" );
}

} // namespace

} // namespace Sodrel::Test
