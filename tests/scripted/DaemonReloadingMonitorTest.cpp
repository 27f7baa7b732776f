// The monitor of a reload of the manager.
#include <scripted/MonitorTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

constexpr const char* timeout = "Sodrel::SdbusSyncException: "
                                "DaemonReloadingMonitor::wait, 600.000000 timeout";

class ADaemonReloadingMonitor : public MonitorOf< DaemonReloadingMonitor > {
 protected:
   // "true", "false", or the exception.
   std::string waiting() {
      bool seen = false;
      const std::string thrown = thrownBy( [&] { seen = monitor->wait( std::nullopt ); } );
      return thrown != "nothing" ? thrown : seen ? "true" : "false";
   }
   void expectRecord( bool callbackFailed, bool started, bool finished ) {
      const auto record = monitor->dataIs();
      EXPECT_EQ( field< bool >( *record, "callbackFailed" ), callbackFailed );
      EXPECT_EQ( field< bool >( *record, "started" ), started );
      EXPECT_EQ( field< bool >( *record, "finished" ), finished );
   }
};

using TheDaemonReloadingMonitorFactory = MonitorTest;

TEST_F( TheDaemonReloadingMonitorFactory, registersTheMatchAndTheEndRemovesItBeforeTheRecord ) {
   auto monitor = daemonReloadingMonitorFactory( bus );
   expectLog( {
      "SignalMonitor/8 handleInitialized: Initialize DaemonReloadingMonitor",
      matched( "bus1", managerPath, managerInterface, "Reloading" ),
   } );
   auto record = monitor->dataIs();
   EXPECT_EQ( script.slots().at( 0 )->userdata, record.get() );
   EXPECT_EQ( record->useCount(), 2U );
   record = nullptr;
   monitor = nullptr;
   expectLog( {
      "SignalMonitor/8 handleDeleted: Deinitialize DaemonReloadingMonitor",
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( TheDaemonReloadingMonitorFactory, throwsWhenTheMatchCannotBeRegistered ) {
   script.next( "sd_bus_match_signal", fails( ENOTCONN ) );
   EXPECT_EQ(
      thrownBy( [this] { (void)daemonReloadingMonitorFactory( bus ); } ),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::handleInitialized, "
      "failed to register Reloading monitor: Transport endpoint is not connected" );
   EXPECT_EQ( livingEntities(), "" );
}

TEST_F( ADaemonReloadingMonitor, startsWithADefaultLimitAndADefaultRecord ) {
   EXPECT_EQ(
      field< Tessel::Interval >( *monitor, "syncTimeout" ).nanoseconds(), 600'000'000'000U );
   expectRecord( false, false, false );
   EXPECT_EQ( script.alive(), "bus1 slot1" );
}

TEST_F( ADaemonReloadingMonitor, ownsItsRecordUntilItIsTakenOut ) {
   auto record = monitor->dataDel();
   EXPECT_EQ( record->useCount(), 1U );
   EXPECT_NE( monitor->dataIs().get(), record.get() );
   monitor = nullptr;
}

TEST_F( ADaemonReloadingMonitor, returnsTrueAfterAStartAndAFinish ) {
   pass( { reloading( true ) } );
   pass( { reloading( false ) } );
   EXPECT_EQ( waiting(), "true" );
   expectRecord( false, true, true );
}

TEST_F( ADaemonReloadingMonitor, returnsFalseAfterAFinishAlone ) {
   pass( { reloading( false ) } );
   EXPECT_EQ( waiting(), "false" );
   expectRecord( false, false, true );
}

TEST_F( ADaemonReloadingMonitor, ignoresASecondStart ) {
   pass( { reloading( true ), reloading( true ), reloading( false ) } );
   EXPECT_EQ( waiting(), "true" );
}

TEST_F( ADaemonReloadingMonitor, ignoresAStartAfterTheFinishOfTheSamePass ) {
   script.next(
      "sd_bus_process",
      dispatches( { reloading( true ), reloading( false ), reloading( true ) } ) );
   EXPECT_EQ( waiting(), "true" );
   expectRecord( false, true, true );
}

TEST_F( ADaemonReloadingMonitor, goesOnWaitingWhenAStartFollowsAFinishInOnePass ) {
   pass( { reloading( false ), reloading( true ) } );
   pass( { reloading( false ) } );
   EXPECT_EQ( waiting(), "true" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      reloadingRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
      "sd_bus_wait( bus1, 600000001 )",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( ADaemonReloadingMonitor, returnsTrueForAFinishAStartAndAFinishInOnePass ) {
   pass( { reloading( false ), reloading( true ), reloading( false ) } );
   EXPECT_EQ( waiting(), "true" );
}

TEST_F( ADaemonReloadingMonitor, endsInTheTimeLimitWithoutAFinish ) {
   EXPECT_EQ( waiting(), timeout );
   pass( { reloading( true ) } );
   EXPECT_EQ( waiting(), timeout );
}

TEST_F( ADaemonReloadingMonitor, forgetsWhatCameBeforeTheWait ) {
   script.dispatch( bus, reloading( true ) );
   script.dispatch( bus, managerSignal( "Reloading", s( "" ) ) );
   expectRecord( true, true, false );
   pass( { reloading( false ) } );
   EXPECT_EQ( waiting(), "false" );
   EXPECT_EQ( waiting(), timeout );
}

TEST_F( ADaemonReloadingMonitor, takesAnEmptySignalAsAFinish ) {
   pass( { managerSignal( "Reloading", {} ) } );
   EXPECT_EQ( waiting(), "false" );
}

TEST_F( ADaemonReloadingMonitor, failsForASignalThatIsNoBoolean ) {
   pass( {} );
   script.next( "sd_bus_process", dispatches( { managerSignal( "Reloading", s( "true" ) ) } ) );
   EXPECT_EQ(
      waiting(),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, callback handling failed" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
      "sd_bus_wait( bus1, 600000001 )",
      "sd_bus_process( bus1, null )",
      "sd_bus_message_read( Reloading, b )",
      "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
      "Failed to parse Reloading signal. )",
      "Reloading callback gives -6",
   } );
   expectRecord( true, false, false );
}

} // namespace

} // namespace Sodrel::Test
