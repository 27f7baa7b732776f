// The loss of the bus, between calls and during waits, on a real systemd.
#include "Box.h"

#include <filesystem>
#include <iterator>
#include <optional>

#include <gmock/gmock.h>
#include <sys/resource.h>

namespace SodrelTest {

namespace {

using ::testing::ElementsAre;

constexpr const char* expired = "sdbus/5: Reconnect sd-bus, older connection expired: 104";

std::string traceOf( const std::string& call ) {
   return "managerCallSsO/8: Call sd-bus systemd manager " + call + " replace, async=false";
}

auto openDescriptors() {
   return std::distance( std::filesystem::directory_iterator( "/proc/self/fd" ), {} );
}

// A client that loses the bus between two of its calls.
class AReconnection : public AClient {
 protected:
   CollectedTraces traces{ { "Sodrel" } };
};

TEST_F( AReconnection, tracesThatItsConnectionWasClosed ) {
   sd_bus_close( client->sdbus() );

   EXPECT_EQ( text( client->managerPropertyS( "SystemState" ) ), "running" );

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "managerPropertyS/8: Get SystemState manager property with sd-bus",
                         "sdbus/5: Reconnect sd-bus, older connection expired: 107" ) );
}

TEST_F( AReconnection, followsARestartOfTheBus ) {
   run( "systemctl restart dbus.service" );

   call( "StartUnit", "oneshot-remains.service" );

   EXPECT_THAT(
      traces.lines(),
      ElementsAre(
         traceOf( "StartUnit oneshot-remains.service" ), expired, "asyncManagerCallSsO/8: " ) );
   EXPECT_EQ( stateOf( "oneshot-remains.service" ), "active" );
}

TEST_F( AReconnection, followsACrashOfTheBus ) {
   killBus();

   call( "StartUnit", "oneshot-remains.service" );

   EXPECT_EQ( traces.lines().at( 1 ), expired );
   EXPECT_EQ( stateOf( "oneshot-remains.service" ), "active" );
}

TEST_F( AReconnection, duringTheLookUpOfAUnitTakesItsMonitorToTheNewConnection ) {
   call( "StartUnit", "reload-succeeds.service" );
   traces.clear();
   std::optional< Observer > observer;
   // The monitor has not been created yet, and nothing else keeps the old connection.
   traces.when( "asyncManagerCallSO/8: ", [&] {
      killBus();
      observer.emplace();
   } );

   const std::string job = call( "ReloadUnit", "reload-succeeds.service" );

   EXPECT_EQ( observer->resultOf( job ), "done" );
   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         traceOf( "ReloadUnit reload-succeeds.service" ),
                         "asyncManagerCallSO/8: ", expired, "asyncManagerCallSsO/8: " ) );
}

TEST_F( AReconnection, afterTheMonitorHasBeenMadeLeavesItBehind ) {
   Gate gate( "/run/start-waits" );
   traces.when( "asyncManagerCallSsO/8: ", [] { killBus(); } );

   EXPECT_EQ(
      thrownBy( [&] { call( "StartUnit", "start-waits.service" ); } ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, sd_bus_process failed: Connection "
      "reset by peer" );

   EXPECT_THAT(
      traces.lines(),
      ElementsAre(
         traceOf( "StartUnit start-waits.service" ), "asyncManagerCallSsO/8: ", expired ) );
   // The call was nevertheless sent on the new connection.
   gate.pass();
}

TEST_F( AReconnection, failsUntilTheBusIsBack ) {
   run( "systemctl stop dbus.service dbus.socket 2>&1" );
   for( int i = 0; i < 2; ++i ) {
      EXPECT_EQ(
         thrownBy( [&] { call( "StartUnit", "oneshot-remains.service" ); } ),
         "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus: Connection "
         "refused" );
   }

   run( "systemctl start dbus.socket" );
   EXPECT_EQ( text( client->managerPropertyS( "SystemState" ) ), "running" );

   // Only the first loss is traced: afterwards there is no connection to replace.
   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         traceOf( "StartUnit oneshot-remains.service" ), expired,
                         traceOf( "StartUnit oneshot-remains.service" ),
                         "managerPropertyS/8: Get SystemState manager property with sd-bus" ) );
}

TEST_F( AReconnection, isRepeatedWithoutLosingDescriptors ) {
   const auto before = openDescriptors();
   rlimit limit{};
   ASSERT_EQ( getrlimit( RLIMIT_NOFILE, &limit ), 0 );
   limit.rlim_cur = 64;
   ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &limit ), 0 );

   for( int i = 0; i < 1'000; ++i ) {
      sd_bus_close( client->sdbus() );
      ASSERT_EQ( stateOf( "dbus.service" ), "active" );
   }

   EXPECT_EQ( openDescriptors(), before );
   EXPECT_EQ( traces.lines().size(), 3'000U );
}

TEST_F( AReconnection, isRepeatedOverCrashesOfTheBusWithoutLosingDescriptors ) {
   const auto before = openDescriptors();

   for( int i = 0; i < 10; ++i ) {
      killBus();
      call( "StartUnit", "oneshot-remains.service" );
   }

   EXPECT_EQ( openDescriptors(), before );
}

// A wait during which the bus is lost.
class AnInterruptedWait : public AClient {
 protected:
   // The bus is killed when a wait begins, that is, after the reply to the call.
   void killWhen( const std::string& line ) {
      traces.when( line, [] { killBus(); } );
   }

   CollectedTraces traces{ { "SignalMonitor" } };
};

TEST_F( AnInterruptedWait, forAJobReportsTheLossOfTheBus ) {
   Gate gate( "/run/start-waits" );
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   const std::string job = send( "StartUnit", "start-waits.service" );
   killWhen( "wait/8: Wait for JobRemoved signal of " + job );

   EXPECT_EQ(
      thrownBy( [&] { monitor->wait( Tessel::String( job ) ); } ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, sd_bus_process failed: Connection "
      "reset by peer" );

   EXPECT_EQ( stateOf( "start-waits.service" ), "activating" );
   gate.pass();
}

TEST_F( AnInterruptedWait, forADaemonReloadReportsTheLossOfTheBus ) {
   killWhen( "wait/8: Wait for Reloading signal" );

   // No client has subscribed, so only the loss of the bus ends the wait.
   EXPECT_EQ(
      thrownBy( [&] { client->managerCall( "Reload", false ); } ),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, sd_bus_process failed: Connection "
      "reset by peer" );

   EXPECT_EQ( text( client->managerPropertyS( "SystemState" ) ), "running" );
}

TEST_F( AnInterruptedWait, forAUnitReloadReportsTheLossOfTheBus ) {
   call( "StartUnit", "reload-succeeds.service" );
   killWhen( "wait/8: Wait for PropertiesChanged signal" );

   EXPECT_EQ(
      thrownBy( [&] { call( "ReloadUnit", "reload-succeeds.service" ); } ),
      "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, sd_bus_process failed: Connection "
      "reset by peer" );

   EXPECT_EQ( stateOf( "reload-succeeds.service" ), "active" );
}

} // namespace

} // namespace SodrelTest
