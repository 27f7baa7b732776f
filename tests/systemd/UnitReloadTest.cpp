// Reloads of units on a real systemd: what the monitor sees of each kind.
#include "Box.h"

#include <fstream>
#include <ostream>

#include <gmock/gmock.h>

namespace SodrelTest {

namespace {

using ::testing::Values;

constexpr const char* expired =
   "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, 0.050000 timeout";

// Reads a flag of the monitor's record.
bool flag( UnitReloadingMonitor& monitor, const char* name ) {
   bool value = false;
   const auto record = monitor.dataIs();
   EXPECT_EQ( Tessel::memberOf( *record, name ).read( *record, &value ), Tessel::accessDone );
   return value;
}

class AUnitReload : public AClient {
 protected:
   Tessel::Ptr< UnitReloadingMonitor > monitorOf( const std::string& unit ) {
      const Tessel::String path = client->asyncManagerCallSO( "GetUnit", unit );
      return unitReloadingMonitorFactory( client->sdbus(), path );
   }

   // Reloads a unit, waits for the end of its job, and returns a monitor created before the
   // reload.
   Tessel::Ptr< UnitReloadingMonitor > afterAReload() {
      call( "StartUnit", "reload-succeeds.service" );
      const auto jobMonitor = jobRemovedMonitorFactory( client->sdbus() );
      auto monitor = monitorOf( "reload-succeeds.service" );
      const std::string job = send( "ReloadUnit", "reload-succeeds.service" );
      EXPECT_TRUE( jobMonitor->wait( Tessel::String( job ) ) );
      return monitor;
   }
};

TEST_F( AUnitReload, leavesNoTraceInTheRecordWhenNoClientHasSubscribed ) {
   const auto monitor = afterAReload();

   EXPECT_EQ( flag( *monitor, "started" ), busHasSubscribed() );
   EXPECT_EQ( shortWait( *monitor ), expired );
}

TEST_F( AUnitReload, leavesItsTraceInTheRecord ) {
   const Observer observer;

   const auto monitor = afterAReload();

   EXPECT_TRUE( flag( *monitor, "started" ) );
   EXPECT_TRUE( flag( *monitor, "finished" ) );
}

struct Reload {
   const char* name;
   const char* method;
   const char* started; // the unit that is started first
   const char* unit;
   const char* states;
   const char* result; // of the job
   bool seen;          // by the monitor
};

void PrintTo( const Reload& reload, std::ostream* stream ) {
   *stream << reload.method << ' ' << reload.unit;
}

class AReload : public AUnitReload, public ::testing::WithParamInterface< Reload > {};

TEST_P( AReload, isOverWhenTheUnitIsActiveAgainOrUnseen ) {
   const Reload& reload = GetParam();
   Observer observer;
   call( "StartUnit", reload.started );
   observer.watch( reload.unit );
   std::string job;

   if( reload.seen ) {
      job = call( reload.method, reload.unit );
      EXPECT_TRUE( job.starts_with( "/org/freedesktop/systemd1/job/" ) ) << job;
   } else {
      const auto monitor = monitorOf( reload.unit );
      job = send( reload.method, reload.unit );
      observer.resultOf( job );
      EXPECT_EQ( shortWait( *monitor ), expired );
   }

   EXPECT_EQ( observer.statesUntilEndOf( job ), reload.states );
   EXPECT_EQ( observer.resultOf( job ), reload.result );
}

constexpr const char* reloaded = "active reloading active";
constexpr const char* restarted = "active deactivating inactive activating active";

INSTANTIATE_TEST_SUITE_P(
   OfAUnit, AReload,
   Values(
      Reload{ "thatSucceeds", "ReloadUnit", "reload-succeeds.service", "reload-succeeds.service",
              reloaded, "done", true },
      Reload{ "thatFails", "ReloadUnit", "reload-fails.service", "reload-fails.service", reloaded,
              "failed", true },
      Reload{ "thatTimesOut", "ReloadUnit", "reload-times-out.service", "reload-times-out.service",
              reloaded, "failed", true },
      Reload{ "ratherThanARestart", "ReloadOrRestartUnit", "reload-succeeds.service",
              "reload-succeeds.service", reloaded, "done", true },
      Reload{ "byARestartOfTypeExec", "ReloadOrRestartUnit", "exec-without-reload.service",
              "exec-without-reload.service", restarted, "done", true },
      Reload{ "byARestartOfTypeForking", "ReloadOrRestartUnit", "forking-without-reload.service",
              "forking-without-reload.service", restarted, "done", true },
      Reload{ "byARestartOfTypeNotify", "ReloadOrRestartUnit", "notify-without-reload.service",
              "notify-without-reload.service", restarted, "done", true },
      Reload{ "byARestartOfTypeDbus", "ReloadOrRestartUnit", "dbus-without-reload.service",
              "dbus-without-reload.service", restarted, "done", true },
      // There is nothing to stop.
      Reload{ "byARestartOfTypeOneshot", "ReloadOrRestartUnit", "oneshot-remains.service",
              "oneshot-remains.service", "active inactive activating active", "done", true },
      // It is never activating.
      Reload{ "byARestartOfTypeSimple", "ReloadOrRestartUnit", "simple-without-reload.service",
              "simple-without-reload.service", "active deactivating inactive active", "done",
              false },
      Reload{ "thatIsOnlyPassedOn", "ReloadUnit", "reload-propagates.target",
              "reload-propagates.target", "active", "done", false },
      Reload{ "thatIsLoadedButInactive", "ReloadUnit", "keeps-inactive-loaded.target",
              "inactive.service", "inactive", "invalid", false } ),
   []( const auto& test ) { return test.param.name; } );

TEST_F( AUnitReload, isRefusedAtOnceForAUnitThatIsNotLoaded ) {
   EXPECT_EQ(
      thrownBy( [&] { call( "ReloadUnit", "inactive.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit inactive.service "
      "failed: Unit inactive.service not loaded." );
}

TEST_F( AUnitReload, isRefusedForAUnitThatCannotBeReloaded ) {
   call( "StartUnit", "simple-without-reload.service" );

   EXPECT_EQ(
      thrownBy( [&] { call( "ReloadUnit", "simple-without-reload.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, sd-bus call ReloadUnit "
      "simple-without-reload.service replace failed: Job type reload is not applicable for unit "
      "simple-without-reload.service." );
}

TEST_F( AUnitReload, failsAtOnceForAUnitThatHasFailedBefore ) {
   Observer observer;
   Gate gate( "/run/start-waits" );
   EXPECT_THROW( call( "StartUnit", "fails-after-start-waits.service" ), SdbusJobException );
   // Holds back the restart, which would clear the failure.
   const std::string start = send( "StartUnit", "start-waits.service" );

   EXPECT_EQ(
      thrownBy( [&] { call( "ReloadOrRestartUnit", "fails-after-start-waits.service" ); } ),
      "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, unit "
      "/org/freedesktop/systemd1/unit/fails_2dafter_2dstart_2dwaits_2eservice failed: Success" );

   gate.pass();
   EXPECT_EQ( observer.resultOf( start ), "done" );
}

TEST_F( AUnitReload, failsWhenTheRestartFails ) {
   const Observer observer;
   std::ofstream( "/run/start-allowed" ).close();
   call( "StartUnit", "start-allowed-by-file.service" );
   std::remove( "/run/start-allowed" );

   EXPECT_EQ(
      thrownBy( [&] { call( "ReloadOrRestartUnit", "start-allowed-by-file.service" ); } ),
      "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, unit "
      "/org/freedesktop/systemd1/unit/start_2dallowed_2dby_2dfile_2eservice failed: Success" );
}

TEST_F( AUnitReload, doesNotSeeTheEndOfOneThatHadBegunBefore ) {
   Observer observer;
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

   // systemd reloads the unit again within the same job.
   EXPECT_EQ( second, first );
   gate.pass();
   gate.await();
   EXPECT_EQ( shortWait( *monitor ), expired );
   gate.pass();
   EXPECT_TRUE( patientMonitor->wait( std::nullopt ) );
   EXPECT_EQ( observer.statesUntilEndOf( first ), "active reloading active reloading active" );
}

TEST_F( AUnitReload, cannotBeAwaitedIfItMayDoNothing ) {
   Observer observer;
   call( "StartUnit", "reload-succeeds.service" );

   EXPECT_EQ(
      thrownBy( [&] { call( "ReloadOrTryRestartUnit", "reload-succeeds.service" ); } ),
      "Sodrel::SdbusSyncException: Sdbus::managerCallSsO, method ReloadOrTryRestartUnit doesn't "
      "support sync operations" );

   EXPECT_EQ(
      observer.resultOf( send( "ReloadOrTryRestartUnit", "reload-succeeds.service" ) ), "done" );
}

} // namespace

} // namespace SodrelTest
