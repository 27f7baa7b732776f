// Unit methods followed to the end of their jobs on a real systemd.
#include "Box.h"

#include <optional>
#include <ostream>
#include <string>
#include <tuple>

#include <gmock/gmock.h>

namespace SodrelTest {

namespace {

using ::testing::Bool;
using ::testing::Combine;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using ::testing::Values;

// A unit of some type, with and without a subscriber on the bus.
class AUnit : public AClient,
              public ::testing::WithParamInterface< std::tuple< std::string, bool > > {
 protected:
   void SetUp() override {
      if( std::get< bool >( GetParam() ) ) {
         observer.emplace();
      }
   }

   const std::string unit = std::get< std::string >( GetParam() ) + ".service";
   std::optional< Observer > observer;
};

TEST_P( AUnit, isStartedRestartedAndStopped ) {
   const std::string start = call( "StartUnit", unit );
   EXPECT_THAT( start, StartsWith( "/org/freedesktop/systemd1/job/" ) );
   EXPECT_EQ( stateOf( unit ), "active" );
   const std::string first = shown( "InvocationID", unit );

   const std::string restart = call( "RestartUnit", unit );
   EXPECT_NE( restart, start );
   EXPECT_EQ( stateOf( unit ), "active" );
   EXPECT_NE( shown( "InvocationID", unit ), first );

   call( "StopUnit", unit );
   EXPECT_EQ( shown( "ActiveState", unit ), "inactive" );
}

INSTANTIATE_TEST_SUITE_P(
   OfType, AUnit,
   Combine(
      Values(
         "simple-without-reload", "exec-without-reload", "forking-without-reload",
         "notify-without-reload", "dbus-without-reload", "oneshot-remains" ),
      Bool() ),
   []( const auto& test ) {
      const std::string& unit = std::get< std::string >( test.param );
      return unit.substr( 0, unit.find( '-' ) ) +
             ( std::get< bool >( test.param ) ? "WithASubscriber" : "WithoutASubscriber" );
   } );

struct BadEnd {
   const char* method;
   const char* unit;
   const char* result;
};

void PrintTo( const BadEnd& end, std::ostream* stream ) {
   *stream << end.method << ' ' << end.unit;
}

// A job that ends badly.
class AFailingJob : public AClient, public ::testing::WithParamInterface< BadEnd > {};

TEST_P( AFailingJob, isReportedWithItsResult ) {
   Observer observer;

   const std::string report = thrownBy( [&] { call( GetParam().method, GetParam().unit ); } );

   const Observer::Ended end = observer.lastJobOf( GetParam().unit );
   EXPECT_EQ( end.result, GetParam().result );
   EXPECT_EQ(
      report, "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + end.job +
                 " result: " + end.result );
}

INSTANTIATE_TEST_SUITE_P(
   With, AFailingJob,
   Values(
      BadEnd{ "StartUnit", "oneshot-fails.service", "failed" },
      BadEnd{ "RestartUnit", "oneshot-fails.service", "failed" },
      BadEnd{ "StartUnit", "dependency-fails.service", "dependency" },
      BadEnd{ "StartUnit", "start-times-out.service", "failed" },
      BadEnd{ "StartUnit", "job-times-out.service", "timeout" },
      BadEnd{ "StartUnit", "assert-unmet.service", "assert" },
      BadEnd{ "StartUnit", "dev-null.device", "unsupported" } ),
   []( const auto& test ) { return std::to_string( test.index ) + test.param.result; } );

struct Refusal {
   const char* name;
   const char* method;
   const char* unit;
   const char* mode;
   const char* reason;
};

void PrintTo( const Refusal& refusal, std::ostream* stream ) {
   *stream << refusal.method << ' ' << refusal.unit;
}

// A call that systemd refuses.
class ARefusedCall : public AClient, public ::testing::WithParamInterface< Refusal > {};

TEST_P( ARefusedCall, isReportedWithTheReason ) {
   const auto& [name, method, unit, mode, reason] = GetParam();
   for( const bool async : { true, false } ) {
      EXPECT_EQ(
         thrownBy( [&, method = method, unit = unit, mode = mode] {
            client->managerCallSsO( method, unit, mode, async );
         } ),
         std::string( "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, sd-bus call " ) +
            method + ' ' + unit + ' ' + mode + " failed: " + reason );
   }
}

INSTANTIATE_TEST_SUITE_P(
   For, ARefusedCall,
   Values(
      Refusal{ "anUnknownUnit", "StartUnit", "nosuch.service", "replace",
               "Unit nosuch.service not found." },
      Refusal{ "stoppingAnUnknownUnit", "StopUnit", "nosuch.service", "replace",
               "Unit nosuch.service not loaded." },
      Refusal{ "aMaskedUnit", "StartUnit", "unit-masked.service", "replace",
               "Unit unit-masked.service is masked." },
      Refusal{ "aFaultyUnitFile", "StartUnit", "unit-faulty.service", "replace",
               "Unit unit-faulty.service has a bad unit file setting." },
      Refusal{
         "aUnitThatRefuses", "StartUnit", "start-refused.service", "replace",
         "Operation refused, unit start-refused.service may be requested by dependency only (it is "
         "configured to refuse manual start/stop)." },
      Refusal{ "anUnknownMode", "StartUnit", "simple-without-reload.service", "bogus",
               "Job mode bogus invalid" },
      Refusal{ "anUnknownMethod", "MendUnit", "simple-without-reload.service", "replace",
               "Unknown method MendUnit or interface org.freedesktop.systemd1.Manager." } ),
   []( const auto& test ) { return test.param.name; } );

class AJob : public AClient {};

TEST_F( AJob, isDoneEvenIfAConditionKeepsTheUnitFromStarting ) {
   call( "StartUnit", "condition-unmet.service" );
   call( "StartUnit", "exec-condition-unmet.service" );

   EXPECT_EQ( shown( "ActiveState", "condition-unmet.service" ), "inactive" );
   EXPECT_EQ( shown( "ActiveState", "exec-condition-unmet.service" ), "inactive" );
}

TEST_F( AJob, isReportedAsCanceledByAnother ) {
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   const std::string start = send( "StartUnit", "start-hangs.service" );

   const auto another = sdbusFactory();
   (void)another->managerCallSsO( "StopUnit", "start-hangs.service", "replace", false );

   EXPECT_EQ(
      thrownBy( [&] { monitor->wait( Tessel::String( start ) ); } ),
      "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + start + " result: canceled" );
}

TEST_F( AJob, continuesAfterAnAsynchronousCall ) {
   Gate gate( "/run/start-waits" );

   const std::string job = send( "StartUnit", "start-waits.service" );

   EXPECT_THAT( job, StartsWith( "/org/freedesktop/systemd1/job/" ) );
   gate.await();
   EXPECT_EQ( stateOf( "start-waits.service" ), "activating" );
   gate.pass();
}

TEST_F( AJob, canBeAwaitedAfterItsEnd ) {
   Observer observer;
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   const std::string job = send( "StartUnit", "oneshot-remains.service" );
   ASSERT_EQ( observer.resultOf( job ), "done" );

   EXPECT_TRUE( monitor->wait( Tessel::String( job ) ) );
}

TEST_F( AJob, isNotMistakenForOneOfAnotherClient ) {
   Gate gate( "/run/start-waits" );
   const Observer observer;
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   const std::string job = send( "StartUnit", "start-waits.service" );
   const auto another = sdbusFactory();
   for( int i = 0; i < 20; ++i ) {
      (void)another->managerCallSsO( "StartUnit", "oneshot-remains.service", "replace", false );
   }
   EXPECT_THROW(
      (void)another->managerCallSsO( "StartUnit", "assert-unmet.service", "replace", false ),
      SdbusJobException );
   EXPECT_EQ(
      shortWait( *monitor, job ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, 0.050000 timeout for " + job );

   gate.pass();

   limitIs( *monitor, 600'000'000'000 );
   EXPECT_TRUE( monitor->wait( Tessel::String( job ) ) );
}

struct HandMade {
   const char* started; // the unit that is started first
   const char* unit;
   const char* result;
};

// A reload that is awaited with a job monitor created by the test.
class AReloadJob : public AClient, public ::testing::WithParamInterface< HandMade > {};

TEST_P( AReloadJob, isReportedWithItsResult ) {
   call( "StartUnit", GetParam().started );
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );

   const std::string job = send( "ReloadUnit", GetParam().unit );

   EXPECT_EQ(
      thrownBy( [&] { monitor->wait( Tessel::String( job ) ); } ),
      "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + job +
         " result: " + GetParam().result );
}

INSTANTIATE_TEST_SUITE_P(
   With, AReloadJob,
   Values(
      HandMade{ "reload-fails.service", "reload-fails.service", "failed" },
      HandMade{ "keeps-inactive-loaded.target", "inactive.service", "invalid" } ),
   []( const auto& test ) { return test.param.result; } );

class ACallWithOneString : public AClient {};

TEST_F( ACallWithOneString, returnsAtOnceWhenTheReplyIsAUnit ) {
   EXPECT_EQ(
      text( client->managerCallSO( "LoadUnit", "simple-without-reload.service", false ) ),
      "/org/freedesktop/systemd1/unit/simple_2dwithout_2dreload_2eservice" );
}

TEST_F( ACallWithOneString, reportsAReplyWithoutAnObject ) {
   call( "StartUnit", "simple-without-reload.service" );
   for( const bool async : { true, false } ) {
      EXPECT_EQ(
         thrownBy( [&] {
            client->managerCallSO( "ResetFailedUnit", "simple-without-reload.service", async );
         } ),
         "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSO, message read failed when "
         "calling ResetFailedUnit "
         "simple-without-reload.service: No such device or address" );
   }
}

TEST_F( ACallWithOneString, reportsAUnitThatIsNotLoaded ) {
   EXPECT_EQ(
      thrownBy( [&] { client->managerCallSO( "GetUnit", "nosuch.service", false ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit nosuch.service "
      "failed: Unit nosuch.service "
      "not loaded." );
}

} // namespace

} // namespace SodrelTest
