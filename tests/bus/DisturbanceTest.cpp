// Operations under POSIX signals, across a fork, and blocked in a wait when the bus dies.
#include <csignal>
#include <functional>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/time.h>

#include <support/ChildProcess.h>

#include "BusWitness.h"
#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

// Interrupts what the process waits for, every 4 ms.
class Interruptions {
 public:
   Interruptions() {
      struct sigaction action {};
      action.sa_handler = []( int ) { count = count + 1; };
      action.sa_flags = SA_RESTART;
      sigaction( SIGALRM, &action, nullptr );
      timer( 4'000 );
   }
   Interruptions( const Interruptions& ) = delete;
   Interruptions& operator=( const Interruptions& ) = delete;
   ~Interruptions() {
      timer( 0 );
      std::signal( SIGALRM, SIG_DFL );
   }

   static inline volatile std::sig_atomic_t count = 0;

 private:
   static void timer( suseconds_t microseconds ) {
      const itimerval every{ { 0, microseconds }, { 0, microseconds } };
      setitimer( ITIMER_REAL, &every, nullptr );
   }
};

struct Disturbed {
   const char* name;
   std::function< Tessel::String( Sdbus& ) > run;
   std::string result;
   // How the texts of its calls, its match and its wait begin, if it has them.
   std::vector< std::string > failures;
};

void PrintTo( const Disturbed& operation, std::ostream* stream ) {
   *stream << operation.name;
}

class AnInterruptedOperation : public ALibraryClient,
                               public testing::WithParamInterface< Disturbed > {};

TEST_P( AnInterruptedOperation, succeedsOrSaysThatItWasInterrupted ) {
   const std::string why = ": Interrupted system call";
   std::set< std::string > outcomes{
      GetParam().result, "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus" + why
   };
   for( const std::string& failure : GetParam().failures ) {
      outcomes.insert( failure + why );
   }
   // A renewal between a monitor and its wait leaves the monitor behind.
   if( GetParam().failures.size() > 2 ) {
      std::string closed = GetParam().failures.back();
      closed.replace( closed.rfind( "sd_bus_wait" ), 11, "sd_bus_process" );
      outcomes.insert( closed + ": Connection reset by peer" );
   }
   const Tessel::Ptr< Sdbus > subscriber = sdbusFactory();
   subscriber->managerCall( "Subscribe", true );
   const auto run = [&] { return outcomeOf( [&] { return GetParam().run( *client ); } ); };
   {
      const Interruptions interruptions;
      const int before = Interruptions::count;
      while( Interruptions::count < before + 50 ) {
         EXPECT_THAT( outcomes, testing::Contains( run() ) );
      }
   }
   EXPECT_EQ( run(), GetParam().result );
}

const std::string callFailed = "Sodrel::SdbusCallException: Sdbus::";
const std::string syncFailed = "Sodrel::SdbusSyncException: ";

Tessel::String onlyPath( const Tessel::String& job ) {
   return text( job ).substr( 0, 30 ).c_str();
}

const Disturbed disturbed[]{
   { "managerPropertyS",
     []( Sdbus& client ) { return client.managerPropertyS( "Version" ); },
     "252.39",
     { callFailed + "managerPropertyS, manager property Version read failed" } },
   { "managerPropertyB",
     []( Sdbus& client ) {
        return Tessel::String( client.managerPropertyB( "ShowStatus" ) ? "true" : "false" );
     },
     "true",
     { callFailed + "managerPropertyB, manager property ShowStatus read failed" } },
   { "unitPropertyS",
     []( Sdbus& client ) { return client.unitPropertyS( "web.service", "ActiveState" ); },
     "active",
     { callFailed + "asyncManagerCallSO, sd-bus call GetUnit web.service failed",
       callFailed + "unitPropertyS, read failed for property ActiveState of web.service" } },
   { "creation",
     []( Sdbus& ) { return Tessel::String( Creation().client() ? "created" : "null" ); },
     "created",
     { callFailed + "managerPropertyS, manager property SystemState read failed" } },
   { "managerCall",
     []( Sdbus& client ) {
        client.managerCall( "Reload", false );
        return Tessel::String( "reloaded" );
     },
     "reloaded",
     { callFailed + "asyncManagerCall, sd-bus call Reload failed",
       syncFailed +
          "DaemonReloadingMonitor::handleInitialized, failed to register Reloading monitor",
       syncFailed + "DaemonReloadingMonitor::wait, sd_bus_wait failed" } },
   { "reloadUnit",
     []( Sdbus& client ) {
        return onlyPath( client.managerCallSsO( "ReloadUnit", "web.service", "replace", false ) );
     },
     "/org/freedesktop/systemd1/job/",
     { callFailed + "asyncManagerCallSO, sd-bus call GetUnit web.service failed",
       callFailed + "asyncManagerCallSsO, sd-bus call ReloadUnit web.service replace failed",
       syncFailed +
          "UnitReloadingMonitor::handleInitialized, failed to register PropertiesChanged monitor "
          "for " +
          unitPath( "web.service" ),
       syncFailed + "UnitReloadingMonitor::wait, sd_bus_wait failed" } },
};

INSTANTIATE_TEST_SUITE_P(
   OfEach, AnInterruptedOperation, testing::ValuesIn( disturbed ),
   []( const auto& operation ) { return operation.param.name; } );

// The wait's texts contain the job's path, which differs from call to call.
struct AnInterruptedWait : ALibraryClient {};

TEST_F( AnInterruptedWait, forAJobEndsWithItsResultOrSaysThatItWasInterrupted ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ), hold( "Go" ), jobRemoved( 7, "done" ) } );
   manager.onEveryCall( "Go", { reply() } );
   BusWitness witness( bus );
   std::optional< Interruptions > interruptions;
   // Only the wait is interrupted, and the signal comes after ten readings of the clock, if the
   // wait lives through as many interruptions.
   moments.atReading( 1, [&] { interruptions.emplace(); } );
   moments.atReading( 10, [&] {
      interruptions.reset();
      witness.call( "Go" );
   } );
   const Tessel::String outcome = call( "StartUnit" );
   interruptions.reset();
   EXPECT_THAT(
      outcome, testing::AnyOf(
                  jobOf( 7 ), "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, sd_bus_wait "
                              "failed: Interrupted system call" ) );
   witness.call( "Go" );
   EXPECT_EQ( systemState(), "running" );
}

struct ABlockedWait : ALibraryClient {};

// The second reading of the clock comes just before the wait blocks.
TEST_F( ABlockedWait, endsWhenTheBusDies ) {
   const std::pair< const char*, const char* > waits[]{ { "StartUnit", "JobRemovedMonitor" },
                                                        { "ReloadUnit", "UnitReloadingMonitor" },
                                                        { "Reload", "DaemonReloadingMonitor" } };
   for( const auto& [method, monitor] : waits ) {
      BusWitness witness( bus );
      const bool ofAUnit = method != std::string( "Reload" );
      manager.onCall(
         method, { ofAUnit ? reply( jobPath( 7 ) ) : reply(), hold( "Die" ), killBus() } );
      moments.clear();
      moments.atReading( 2, [&] { witness.call( "Die" ); } );
      EXPECT_EQ(
         ofAUnit ? call( method ) : reload(),
         std::string( "Sodrel::SdbusSyncException: " ) + monitor +
            "::wait, sd_bus_process failed: Connection reset by peer" );
      witness.awaitEndOfBus();
      bus.start();
      manager.run( { connect() } );
      EXPECT_EQ( systemState(), "running" );
   }
}

struct AFork : ALibraryClient {};

TEST_F( AFork, leavesTheParentsConnectionAloneWhateverTheChildDoes ) {
   sd_bus* const connection = client->sdbus();
   moments.clear();
   ChildProcess child( [&] {
      // The first operation finds that the connection belongs to another process.
      const bool works = systemState() == "running" && call( "StartUnit" ) == jobOf( 1 );
      const bool renewed =
         moments.lines().at( 1 ) == "sdbus/5: Reconnect sd-bus, older connection expired: 10";
      client = nullptr;
      return works && renewed ? 0 : 1;
   } );
   EXPECT_EQ( child.wait(), 0 );
   EXPECT_EQ( client->sdbus(), connection );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 2 ) );
   EXPECT_EQ( moments.lines().size(), 5U );
}

TEST_F( AFork, inTheMidstOfAWaitLeavesTheParentsMonitorAlone ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ), hold( "Go" ), jobRemoved( 7, "done" ) } );
   manager.onEveryCall( "Go", { reply() } );
   BusWitness witness( bus );
   moments.atReading( 2, [&] {
      ChildProcess child( [&] {
         client = nullptr;
         return 7;
      } );
      EXPECT_EQ( child.wait(), 7 );
      witness.call( "Go" );
   } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

} // namespace

} // namespace Sodrel::Test
