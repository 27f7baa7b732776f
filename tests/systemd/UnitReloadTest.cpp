// Reloads of units on a real systemd: what their monitor sees of each kind.
#include "Box.h"

#include <fstream>
#include <vector>

#include <gmock/gmock.h>

namespace Sodrel::Test {

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;
using ::testing::Values;

constexpr const char* expired = "UnitReloadingMonitor::wait, 0.050000 timeout";

// Reads a flag of the monitor's record.
bool flag( UnitReloadingMonitor& monitor, const char* name ) {
   bool value = false;
   const auto record = monitor.dataIs();
   EXPECT_EQ( Tessel::memberOf( *record, name ).read( *record, &value ), Tessel::accessDone );
   return value;
}

// Reloads of units while no client has subscribed.
class AnUnseenUnitReload : public AClient {};

TEST_F( AnUnseenUnitReload, leavesNoTraceInTheRecord ) {
   call( "StartUnit", "reload-succeeds.service" );
   const auto jobMonitor = jobRemovedMonitorFactory( client->sdbus() );
   const Tessel::String path = client->asyncManagerCallSO( "GetUnit", "reload-succeeds.service" );
   const auto monitor = unitReloadingMonitorFactory( client->sdbus(), path );

   EXPECT_TRUE(
      jobMonitor->wait( Tessel::String( send( "ReloadUnit", "reload-succeeds.service" ) ) ) );

   EXPECT_EQ( flag( *monitor, "started" ), busHasSubscribed() );
   limitIs( *monitor, 50'000'000 );
   EXPECT_EQ( thrownBy< SdbusSyncException >( [&] { monitor->wait( std::nullopt ); } ), expired );
}

// Reloads of units, with an observer that has subscribed.
class AUnitReload : public AClient {
 protected:
   // A monitor with a limit that is short, because the job's end is awaited before the wait.
   Tessel::Ptr< UnitReloadingMonitor > monitorOf( const std::string& unit ) {
      const Tessel::String path = client->asyncManagerCallSO( "GetUnit", unit );
      auto monitor = unitReloadingMonitorFactory( client->sdbus(), path );
      limitIs( *monitor, 50'000'000 );
      return monitor;
   }

   Observer observer;
};

TEST_F( AUnitReload, leavesItsTraceInTheRecord ) {
   call( "StartUnit", "reload-succeeds.service" );
   const auto jobMonitor = jobRemovedMonitorFactory( client->sdbus() );
   const auto monitor = monitorOf( "reload-succeeds.service" );

   EXPECT_TRUE(
      jobMonitor->wait( Tessel::String( send( "ReloadUnit", "reload-succeeds.service" ) ) ) );

   EXPECT_TRUE( flag( *monitor, "started" ) );
   EXPECT_TRUE( flag( *monitor, "finished" ) );
}

TEST_F( AUnitReload, isOverWhenTheUnitIsActiveAgain ) {
   call( "StartUnit", "reload-succeeds.service" );
   observer.watch( "reload-succeeds.service" );

   const std::string job = call( "ReloadUnit", "reload-succeeds.service" );

   EXPECT_THAT( job, StartsWith( "/org/freedesktop/systemd1/job/" ) );
   EXPECT_THAT( observer.statesUntilEndOf( job ), ElementsAre( "active", "reloading", "active" ) );
   EXPECT_EQ( observer.resultOf( job ), "done" );
}

TEST_F( AUnitReload, isOverThoughItFailed ) {
   call( "StartUnit", "reload-fails.service" );
   observer.watch( "reload-fails.service" );

   const std::string job = call( "ReloadUnit", "reload-fails.service" );

   EXPECT_THAT( observer.statesUntilEndOf( job ), ElementsAre( "active", "reloading", "active" ) );
   EXPECT_EQ( observer.resultOf( job ), "failed" );
}

TEST_F( AUnitReload, isOverThoughItExceededItsTime ) {
   call( "StartUnit", "reload-times-out.service" );
   observer.watch( "reload-times-out.service" );

   const std::string job = call( "ReloadUnit", "reload-times-out.service" );

   EXPECT_THAT( observer.statesUntilEndOf( job ), ElementsAre( "active", "reloading", "active" ) );
   EXPECT_EQ( observer.resultOf( job ), "failed" );
}

TEST_F( AUnitReload, reloadsAUnitThatCanBeReloadedRatherThanRestarted ) {
   call( "StartUnit", "reload-succeeds.service" );
   observer.watch( "reload-succeeds.service" );

   const std::string job = call( "ReloadOrRestartUnit", "reload-succeeds.service" );

   EXPECT_THAT( observer.statesUntilEndOf( job ), ElementsAre( "active", "reloading", "active" ) );
}

TEST_F( AUnitReload, doesNotSeeTheRestartOfASimpleService ) {
   call( "StartUnit", "simple-without-reload.service" );
   observer.watch( "simple-without-reload.service" );
   const auto monitor = monitorOf( "simple-without-reload.service" );

   const std::string job = send( "ReloadOrRestartUnit", "simple-without-reload.service" );

   EXPECT_THAT(
      observer.statesUntilEndOf( job ),
      ElementsAre( "active", "deactivating", "inactive", "active" ) );
   EXPECT_EQ( observer.resultOf( job ), "done" );
   EXPECT_EQ( thrownBy< SdbusSyncException >( [&] { monitor->wait( std::nullopt ); } ), expired );
}

TEST_F( AUnitReload, doesNotSeeAReloadThatIsOnlyPassedOn ) {
   call( "StartUnit", "reload-propagates.target" );
   observer.watch( "reload-propagates.target" );
   const auto monitor = monitorOf( "reload-propagates.target" );

   const std::string job = send( "ReloadUnit", "reload-propagates.target" );

   EXPECT_THAT( observer.statesUntilEndOf( job ), ElementsAre( "active" ) );
   EXPECT_EQ( observer.resultOf( job ), "done" );
   EXPECT_EQ( thrownBy< SdbusSyncException >( [&] { monitor->wait( std::nullopt ); } ), expired );
}

TEST_F( AUnitReload, doesNotSeeThatALoadedUnitIsInactive ) {
   call( "StartUnit", "keeps-inactive-loaded.target" );
   observer.watch( "inactive.service" );
   const auto monitor = monitorOf( "inactive.service" );

   const std::string job = send( "ReloadUnit", "inactive.service" );

   EXPECT_THAT( observer.statesUntilEndOf( job ), ElementsAre( "inactive" ) );
   EXPECT_EQ( observer.resultOf( job ), "invalid" );
   EXPECT_EQ( thrownBy< SdbusSyncException >( [&] { monitor->wait( std::nullopt ); } ), expired );
}

TEST_F( AUnitReload, isRefusedAtOnceForAUnitThatIsNotLoaded ) {
   EXPECT_EQ(
      thrownBy< SdbusCallException >( [&] { call( "ReloadUnit", "inactive.service" ); } ),
      "Sdbus::asyncManagerCallSO, sd-bus call GetUnit inactive.service failed: Unit "
      "inactive.service not loaded." );
}

TEST_F( AUnitReload, failsAtOnceForAUnitThatHasFailedBefore ) {
   Gate gate( "/run/start-waits" );
   EXPECT_THROW( call( "StartUnit", "fails-after-start-waits.service" ), SdbusJobException );
   observer.watch( "fails-after-start-waits.service" );
   // Keeps the restart waiting, which would clear the failure.
   const std::string start = send( "StartUnit", "start-waits.service" );

   EXPECT_EQ(
      thrownBy< SdbusSyncException >(
         [&] { call( "ReloadOrRestartUnit", "fails-after-start-waits.service" ); } ),
      "UnitReloadingMonitor::wait, unit "
      "/org/freedesktop/systemd1/unit/fails_2dafter_2dstart_2dwaits_2eservice "
      "failed: Success" );

   gate.pass();
   EXPECT_EQ( observer.resultOf( start ), "done" );
}

TEST_F( AUnitReload, failsWhenTheRestartFails ) {
   std::ofstream( "/run/start-allowed" ).close();
   call( "StartUnit", "start-allowed-by-file.service" );
   std::remove( "/run/start-allowed" );

   EXPECT_EQ(
      thrownBy< SdbusSyncException >(
         [&] { call( "ReloadOrRestartUnit", "start-allowed-by-file.service" ); } ),
      "UnitReloadingMonitor::wait, unit "
      "/org/freedesktop/systemd1/unit/start_2dallowed_2dby_2dfile_2eservice "
      "failed: Success" );
}

TEST_F( AUnitReload, doesNotSeeTheEndOfOneThatHadBegunBefore ) {
   call( "StartUnit", "reload-waits.service" );
   Gate gate( "/run/reload-waits/gate" );
   observer.watch( "reload-waits.service" );
   const std::string first = send( "ReloadUnit", "reload-waits.service" );
   gate.await();
   const auto another = sdbusFactory();
   const Tessel::String path = another->asyncManagerCallSO( "GetUnit", "reload-waits.service" );
   const auto patientMonitor = unitReloadingMonitorFactory( another->sdbus(), path );
   const auto monitor = monitorOf( "reload-waits.service" );

   const std::string second = send( "ReloadUnit", "reload-waits.service" );

   // systemd reloads the unit once more, in the same job.
   EXPECT_EQ( second, first );
   gate.pass();
   gate.await();
   EXPECT_EQ( thrownBy< SdbusSyncException >( [&] { monitor->wait( std::nullopt ); } ), expired );
   gate.pass();
   EXPECT_TRUE( patientMonitor->wait( std::nullopt ) );
   EXPECT_THAT(
      observer.statesUntilEndOf( first ),
      ElementsAre( "active", "reloading", "active", "reloading", "active" ) );
}

TEST_F( AUnitReload, isRefusedForAUnitThatCannotBeReloaded ) {
   call( "StartUnit", "simple-without-reload.service" );

   EXPECT_EQ(
      thrownBy< SdbusCallException >(
         [&] { call( "ReloadUnit", "simple-without-reload.service" ); } ),
      "Sdbus::asyncManagerCallSsO, sd-bus call ReloadUnit simple-without-reload.service replace "
      "failed: Job type "
      "reload is not applicable for unit simple-without-reload.service." );
}

TEST_F( AUnitReload, cannotBeFollowedWhenItMayEndInNothing ) {
   call( "StartUnit", "reload-succeeds.service" );

   EXPECT_EQ(
      thrownBy< SdbusSyncException >(
         [&] { call( "ReloadOrTryRestartUnit", "reload-succeeds.service" ); } ),
      "Sdbus::managerCallSsO, method ReloadOrTryRestartUnit doesn't support sync operations" );

   EXPECT_EQ(
      observer.resultOf( send( "ReloadOrTryRestartUnit", "reload-succeeds.service" ) ), "done" );
}

TEST_F( AUnitReload, isTracedFromTheLookUpOfTheUnitToItsWait ) {
   call( "StartUnit", "reload-succeeds.service" );
   const CollectedTraces traces( "Sodrel" );

   call( "ReloadUnit", "reload-succeeds.service" );

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "managerCallSsO/8: Call sd-bus systemd manager ReloadUnit "
                         "reload-succeeds.service replace, "
                         "async=false",
                         "asyncManagerCallSO/8: ", "asyncManagerCallSsO/8: " ) );
}

TEST_F( AUnitReload, isTracedByItsMonitor ) {
   call( "StartUnit", "reload-succeeds.service" );
   const CollectedTraces traces( "SignalMonitor" );

   call( "ReloadUnit", "reload-succeeds.service" );

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "handleInitialized/8: Initialize UnitReloadingMonitor for "
                         "/org/freedesktop/systemd1/unit/reload_2dsucceeds_2eservice",
                         "wait/8: Wait for PropertiesChanged signal",
                         "handleDeleted/8: Deinitialize UnitReloadingMonitor for "
                         "/org/freedesktop/systemd1/unit/reload_2dsucceeds_2eservice" ) );
}

// Services that pass "activating" when they are restarted.
class AVisibleRestart : public AUnitReload, public ::testing::WithParamInterface< std::string > {};

TEST_P( AVisibleRestart, isOverWhenTheUnitIsActiveAgain ) {
   const std::string unit = GetParam() + ".service";
   call( "StartUnit", unit );
   observer.watch( unit );

   const std::string job = call( "ReloadOrRestartUnit", unit );

   EXPECT_EQ( observer.resultOf( job ), "done" );
   std::vector< std::string > expected{ "active", "deactivating", "inactive", "activating",
                                        "active" };
   if( unit == "oneshot-remains.service" ) {
      expected.erase( expected.begin() + 1 ); // there is nothing to stop
   }
   EXPECT_THAT( observer.statesUntilEndOf( job ), ElementsAreArray( expected ) );
}

INSTANTIATE_TEST_SUITE_P(
   OfType, AVisibleRestart,
   Values(
      "exec-without-reload", "forking-without-reload", "notify-without-reload",
      "dbus-without-reload", "oneshot-remains" ),
   []( const auto& test ) { return test.param.substr( 0, test.param.find( '-' ) ); } );

} // namespace

} // namespace Sodrel::Test
