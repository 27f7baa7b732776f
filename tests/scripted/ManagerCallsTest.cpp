// Manager calls without and with one string, waiting for their outcome or not.
#include <scripted/CallTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

using ManagerCalls = CallTest;

TEST_F( ManagerCalls, reloadTheManagerWithoutAMonitorWhenAsynchronous ) {
   client->managerCall( "Reload", true );
   expectLog( {
      "Sodrel/8 managerCall: Call sd-bus systemd manager Reload, async=true",
      sent( "asyncManagerCall", "Reload", "''", "message1" ),
   } );
}

TEST_F( ManagerCalls, sendAnyMethodWhenAsynchronous ) {
   client->managerCall( "Subscribe", true );
   expectLog( {
      "Sodrel/8 managerCall: Call sd-bus systemd manager Subscribe, async=true",
      sent( "asyncManagerCall", "Subscribe", "''", "message1" ),
   } );
}

TEST_F( ManagerCalls, reloadTheManagerAndWaitUntilItHasReloaded ) {
   script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   client->managerCall( "Reload", false );
   expectLog( {
      "Sodrel/8 managerCall: Call sd-bus systemd manager Reload, async=false",
      probed( "bus1" ),
      "SignalMonitor/8 handleInitialized: Initialize DaemonReloadingMonitor",
      matched( "bus1", managerPath, managerInterface, "Reloading" ),
      sent( "asyncManagerCall", "Reload", "''", "message1" ),
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      reloadingRead,
      lastPass(),
      "SignalMonitor/8 handleDeleted: Deinitialize DaemonReloadingMonitor",
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( ManagerCalls, reloadTheManagerAgainOnTheSameMonitorWhenTheStartWasNotSeen ) {
   script.next( "sd_bus_process", dispatches( { reloading( false ) } ) );
   script.next( "sd_bus_process", {} );
   script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   client->managerCall( "Reload", false );
   expectLog( {
      "Sodrel/8 managerCall: Call sd-bus systemd manager Reload, async=false",
      probed( "bus1" ),
      "SignalMonitor/8 handleInitialized: Initialize DaemonReloadingMonitor",
      matched( "bus1", managerPath, managerInterface, "Reloading" ),
      sent( "asyncManagerCall", "Reload", "''", "message1" ),
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      lastPass(),
      sent( "asyncManagerCall", "Reload", "''", "message3" ),
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      reloadingRead,
      lastPass(),
      "SignalMonitor/8 handleDeleted: Deinitialize DaemonReloadingMonitor",
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( ManagerCalls, refuseToWaitForAnyMethodWithoutArgumentsButReload ) {
   for( const char* const method : { "Subscribe", "reload", "Reload ", "ReloadUnit", "" } ) {
      EXPECT_EQ(
         thrownBy( [&] { client->managerCall( method, false ); } ),
         std::string( "Sodrel::SdbusSyncException: Sdbus::managerCall, method " ) + method +
            " doesn't support sync operations" );
      expectLog( {
         std::string( "Sodrel/8 managerCall: Call sd-bus systemd manager " ) + method +
            ", async=false",
         probed( "bus1" ),
      } );
   }
}

TEST_F( ManagerCalls, reportAMissingBusBeforeTheyRefuseAMethod ) {
   const std::string noBus = "Sodrel::NoSdbusException: "
                             "Sdbus::sdbus, failed to initialize sd-bus: No such file or directory";
   script.next( "probe", fails( ENOTCONN ) );
   script.next( "sd_bus_open_system", fails( ENOENT ) );
   EXPECT_EQ( thrownBy( [this] { client->managerCall( "Subscribe", false ); } ), noBus );
   script.next( "sd_bus_open_system", fails( ENOENT ) );
   EXPECT_EQ(
      thrownBy( [this] {
         client->managerCallSsO( "ReloadOrTryRestartUnit", "foo.service", "fail", false );
      } ),
      noBus );
}

TEST_F( ManagerCalls, sendNothingWhenTheMatchCannotBeRegistered ) {
   script.next( "sd_bus_match_signal", fails( ENOMEM ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerCall( "Reload", false ); } ),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::handleInitialized, "
      "failed to register Reloading monitor: Cannot allocate memory" );
   expectLog( {
      "Sodrel/8 managerCall: Call sd-bus systemd manager Reload, async=false",
      probed( "bus1" ),
      "SignalMonitor/8 handleInitialized: Initialize DaemonReloadingMonitor",
      matched( "bus1", managerPath, managerInterface, "Reloading" ),
   } );
}

TEST_F( ManagerCalls, dropTheMonitorWhenTheMethodFails ) {
   script.next( "sd_bus_call_method", fails( EIO, "Reload refused" ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerCall( "Reload", false ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::asyncManagerCall, sd-bus call Reload failed: Reload refused" );
   expectLog( {
      "Sodrel/8 managerCall: Call sd-bus systemd manager Reload, async=false",
      probed( "bus1" ),
      "SignalMonitor/8 handleInitialized: Initialize DaemonReloadingMonitor",
      matched( "bus1", managerPath, managerInterface, "Reloading" ),
      "Sodrel/8 asyncManagerCall: ",
      probed( "bus1" ),
      managerCall( "bus1", "Reload", "''" ),
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, Reload refused )",
      "SignalMonitor/8 handleDeleted: Deinitialize DaemonReloadingMonitor",
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( ManagerCalls, dropTheMonitorWhenTheRepeatedMethodFails ) {
   script.next( "sd_bus_process", dispatches( { reloading( false ) } ) );
   script.next( "sd_bus_call_method", replies( {} ) );
   script.next( "sd_bus_call_method", fails( EIO ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerCall( "Reload", false ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Reload failed" );
   EXPECT_EQ( script.alive(), "bus1" );
}

TEST_F( ManagerCalls, sendAMethodWithOneStringWithoutAMonitorWhenAsynchronous ) {
   EXPECT_EQ( client->managerCallSO( "GetUnit", "foo.service", true ), fooPath );
   expectLog( {
      "Sodrel/8 managerCallSO: Call sd-bus systemd manager GetUnit foo.service, async=true",
      sent( "asyncManagerCallSO", "GetUnit", "s, foo.service", "message1" ),
   } );
}

TEST_F( ManagerCalls, waitForTheJobOfAMethodWithOneString ) {
   script.next( "sd_bus_process", dispatches( { jobRemoved( 42, "done" ) } ) );
   EXPECT_EQ( client->managerCallSO( "ReloadUnit", "foo.service", false ), jobPath );
   expectLog( {
      "Sodrel/8 managerCallSO: Call sd-bus systemd manager ReloadUnit foo.service, async=false",
      probed( "bus1" ),
      jobMonitorBegins,
      sent( "asyncManagerCallSO", "ReloadUnit", "s, foo.service", "message1" ),
      "SignalMonitor/8 wait: Wait for JobRemoved signal of /org/freedesktop/systemd1/job/42",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      jobRemovedRead,
      lastPass(),
      jobMonitorEnds,
   } );
}

TEST_F( ManagerCalls, waitForNothingWhenAMethodWithOneStringGivesAUnit ) {
   EXPECT_EQ( client->managerCallSO( "GetUnit", "foo.service", false ), fooPath );
   expectLog( {
      "Sodrel/8 managerCallSO: Call sd-bus systemd manager GetUnit foo.service, async=false",
      probed( "bus1" ),
      jobMonitorBegins,
      sent( "asyncManagerCallSO", "GetUnit", "s, foo.service", "message1" ),
      std::string( "SignalMonitor/8 wait: Wait for JobRemoved signal of " ) + fooPath,
      jobMonitorEnds,
   } );
}

TEST_F( ManagerCalls, dropTheMonitorWhenTheReplyHoldsNoPath ) {
   script.next( "sd_bus_call_method", replies( {} ) );
   script.next( "sd_bus_message_read", fails( EBADMSG ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerCallSO( "Frob", "foo.service", false ); } ),
      "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSO, message read failed when calling "
      "Frob foo.service: Bad message" );
   EXPECT_TRUE( takeLog().ends_with( "sd_bus_message_unref( message1 )\n" + jobMonitorEnds ) );
}

} // namespace

} // namespace Sodrel::Test
