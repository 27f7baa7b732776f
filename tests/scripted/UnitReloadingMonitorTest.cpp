// The monitor of a unit's reload.
#include <scripted/UnitMonitorTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

using AUnitReloadingMonitor = UnitMonitorTest;
using TheUnitReloadingMonitorFactory = MonitorTest;

TEST_F( TheUnitReloadingMonitorFactory, registersTheMatchAndTheEndRemovesItBeforeTheRecord ) {
   auto monitor = unitReloadingMonitorFactory( bus, fooPath );
   expectLog( {
      "SignalMonitor/8 handleInitialized: "
      "Initialize UnitReloadingMonitor for /org/freedesktop/systemd1/unit/foo_2eservice",
      matched( "bus1", fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
   } );
   auto record = monitor->dataIs();
   EXPECT_EQ( script.slots().at( 0 )->userdata, record.get() );
   EXPECT_EQ( record->useCount(), 2U );
   record = nullptr;
   monitor = nullptr;
   expectLog( {
      "SignalMonitor/8 handleDeleted: "
      "Deinitialize UnitReloadingMonitor for /org/freedesktop/systemd1/unit/foo_2eservice",
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( TheUnitReloadingMonitorFactory, hasATwinInTheClass ) {
   const auto monitor = UnitReloadingMonitor::UnitReloadingMonitorIs( bus, "/other" );
   expectLog( {
      "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for /other",
      matched( "bus1", "/other", "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
   } );
   EXPECT_EQ( monitor->useCount(), 1U );
}

TEST_F( TheUnitReloadingMonitorFactory, throwsWhenTheMatchCannotBeRegistered ) {
   script.next( "sd_bus_match_signal", fails( EINVAL ) );
   EXPECT_EQ(
      thrownBy( [this] { (void)unitReloadingMonitorFactory( bus, "no path" ); } ),
      "Sodrel::SdbusSyncException: UnitReloadingMonitor::handleInitialized, "
      "failed to register PropertiesChanged monitor for no path: Invalid argument" );
   expectLog( {
      "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for no path",
      matched( "bus1", "no path", "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
   } );
   EXPECT_EQ( livingEntities(), "" );
}

TEST_F( TheUnitReloadingMonitorFactory, namesNoUnitForAnEmptyPath ) {
   script.next( "sd_bus_match_signal", fails( EINVAL ) );
   EXPECT_EQ(
      thrownBy( [this] { (void)unitReloadingMonitorFactory( bus, "" ); } ),
      "Sodrel::SdbusSyncException: UnitReloadingMonitor::handleInitialized, "
      "failed to register PropertiesChanged monitor for : Invalid argument" );
}

TEST_F( AUnitReloadingMonitor, startsWithADefaultLimitAndADefaultRecord ) {
   EXPECT_EQ(
      field< Tessel::Interval >( *monitor, "syncTimeout" ).nanoseconds(), 600'000'000'000U );
   expectRecord( false, false, false, false );
   EXPECT_EQ( script.alive(), "bus1 slot1" );
}

TEST_F( AUnitReloadingMonitor, ownsItsRecordUntilItIsTakenOut ) {
   auto record = monitor->dataDel();
   EXPECT_EQ( record->useCount(), 1U );
   EXPECT_NE( monitor->dataIs().get(), record.get() );
   monitor = nullptr;
}

TEST_F( AUnitReloadingMonitor, returnsAfterReloadingAndActive ) {
   passOf( { "reloading" } );
   passOf( { "active" } );
   EXPECT_EQ( waiting(), "nothing" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for PropertiesChanged signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      activeStateRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
      "sd_bus_wait( bus1, 600000001 )",
      "sd_bus_process( bus1, null )",
      activeStateRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
   expectRecord( false, true, true, false );
}

TEST_F( AUnitReloadingMonitor, returnsAfterActivatingAndActive ) {
   passOf( { "activating", "active" } );
   EXPECT_EQ( waiting(), "nothing" );
}

TEST_F( AUnitReloadingMonitor, returnsAfterARestart ) {
   passOf( { "deactivating", "inactive", "activating", "active" } );
   EXPECT_EQ( waiting(), "nothing" );
}

TEST_F( AUnitReloadingMonitor, keepsWaitingWhenActiveComesBeforeAStart ) {
   passOf( { "active" } );
   EXPECT_EQ( waiting(), timeout );
   passOf( { "active", "reloading" } );
   EXPECT_EQ( waiting(), timeout );
}

TEST_F( AUnitReloadingMonitor, keepsWaitingForStatesThatSayNothing ) {
   passOf( { "inactive", "deactivating", "maintenance", "refreshing", "Active", "", "active" } );
   EXPECT_EQ( waiting(), timeout );
   expectRecord( false, false, false, false );
}

TEST_F( AUnitReloadingMonitor, throwsWhenTheReloadEndsInFailed ) {
   passOf( { "reloading" } );
   passOf( { "failed" } );
   EXPECT_EQ( waiting(), unitFailed );
   expectRecord( false, true, false, true );
}

TEST_F( AUnitReloadingMonitor, throwsForAUnitThatFailsWithoutAStart ) {
   script.next( "sd_bus_process", dispatches( { unitBecomes( "failed" ) } ) );
   EXPECT_EQ( waiting(), unitFailed );
}

TEST_F( AUnitReloadingMonitor, keepsWaitingWhenAFailedUnitActivatesInTheSamePass ) {
   passOf( { "failed", "activating" } );
   passOf( { "active" } );
   EXPECT_EQ( waiting(), "nothing" );
}

TEST_F( AUnitReloadingMonitor, forgetsAFailureWithAnyLaterStateOfThePass ) {
   passOf( { "reloading", "failed", "inactive" } );
   EXPECT_EQ( waiting(), timeout );
   expectRecord( false, true, false, false );
}

TEST_F( AUnitReloadingMonitor, returnsWhenTheUnitFailsAfterItsReloadInTheSamePass ) {
   script.next(
      "sd_bus_process", dispatches( {
                           unitBecomes( "reloading" ),
                           unitBecomes( "active" ),
                           unitBecomes( "failed" ),
                        } ) );
   EXPECT_EQ( waiting(), "nothing" );
   expectRecord( false, true, true, true );
}

TEST_F( AUnitReloadingMonitor, staysFinishedThroughAnotherReload ) {
   script.next(
      "sd_bus_process", dispatches( {
                           unitBecomes( "reloading" ),
                           unitBecomes( "active" ),
                           unitBecomes( "reloading" ),
                        } ) );
   EXPECT_EQ( waiting(), "nothing" );
}

TEST_F( AUnitReloadingMonitor, forgetsWhatCameBeforeTheWait ) {
   script.dispatch( bus, unitBecomes( "reloading" ) );
   script.dispatch( bus, unitBecomes( "active" ) );
   script.dispatch( bus, unitBecomes( "failed" ) );
   callbackLog( s( "x" ) );
   expectRecord( true, true, true, true );
   passOf( { "active" } );
   EXPECT_EQ( waiting(), timeout );
}

TEST_F( AUnitReloadingMonitor, ignoresTheObjectThatItIsGiven ) {
   std::vector< std::string > logs;
   for( const Orl::Optional< Tessel::String >& object :
        { Orl::Optional< Tessel::String >(), Orl::Optional< Tessel::String >( jobPath ),
          Orl::Optional< Tessel::String >( "" ) } ) {
      takeLog();
      passOf( { "reloading" } );
      passOf( { "active" } );
      EXPECT_EQ( waiting( object ), "nothing" );
      passOf( { "failed" } );
      EXPECT_EQ( waiting( object ), unitFailed );
      EXPECT_EQ( waiting( object ), timeout );
      logs.push_back( takeLog() );
      script.forgetLeftOver();
   }
   EXPECT_EQ( logs.at( 1 ), logs.at( 0 ) );
   EXPECT_EQ( logs.at( 2 ), logs.at( 0 ) );
}

TEST_F( AUnitReloadingMonitor, reportsABusThatFails ) {
   script.next( "sd_bus_process", fails( ECONNRESET ) );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: "
                 "UnitReloadingMonitor::wait, sd_bus_process failed: Connection reset by peer" );
   script.next( "sd_bus_wait", fails( EINTR ) );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: "
                 "UnitReloadingMonitor::wait, sd_bus_wait failed: Interrupted system call" );
}

} // namespace

} // namespace Sodrel::Test
