// Operations under POSIX signals, across a fork, and blocked in a wait when the bus dies.
#include <csignal>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <sys/time.h>

#include <support/ChildProcess.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

// Interrupts the process every 4 ms while it waits.
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

const std::string interrupted = ": Interrupted system call";

struct Disturbed {
   std::string operation;
   std::string result;
   // The beginnings of the texts of its calls and of its match, if it has them.
   Texts failures;
   // The monitor that waits, if any.
   std::string monitor = {};

   friend void PrintTo( const Disturbed& disturbed, std::ostream* stream ) {
      *stream << disturbed.operation;
   }
};

class AnInterruptedOperation : public ALibraryClient,
                               public testing::WithParamInterface< Disturbed > {};

TEST_P( AnInterruptedOperation, succeedsOrReportsTheInterruption ) {
   const Disturbed& operation = GetParam();
   std::set< std::string > outcomes{ operation.result, notOpened + interrupted };
   for( const std::string& failure : operation.failures ) {
      outcomes.insert( failure + interrupted );
   }
   if( !operation.monitor.empty() ) {
      const std::string wait = syncFailed + operation.monitor + "::wait, ";
      outcomes.insert( wait + "sd_bus_wait failed" + interrupted );
      // A reconnection between a monitor and its wait leaves the monitor behind.
      outcomes.insert( wait + "sd_bus_process failed" + reset );
   }
   const Tessel::Ptr< Sdbus > subscriber = sdbusFactory();
   subscriber->managerCall( "Subscribe", true );
   manager.onEveryCall(
      "ReloadUnit", { replyJob( 7 ), activeState( "web.service", "reloading" ),
                      activeState( "web.service", "active" ) } );
   {
      const Interruptions interruptions;
      const int before = Interruptions::count;
      while( Interruptions::count < before + 50 ) {
         EXPECT_THAT( outcomes, testing::Contains( outcomeOf( operation.operation ) ) );
      }
   }
   EXPECT_EQ( outcomeOf( operation.operation ), operation.result );
}

const Disturbed disturbed[]{
   { "managerPropertyS Version", "252.39", { failureOf( "managerPropertyS Version" ) } },
   { "managerPropertyB ShowStatus", "true", { failureOf( "managerPropertyB ShowStatus" ) } },
   { "unitPropertyS web.service ActiveState",
     "active",
     { failureOf( "asyncManagerCallSO GetUnit web.service" ),
       failureOf( "unitPropertyS web.service ActiveState" ) } },
   { "creation", "created", { failureOf( "managerPropertyS SystemState" ) } },
   { "managerCall Reload",
     "called",
     { failureOf( "asyncManagerCall Reload" ),
       syncFailed +
          "DaemonReloadingMonitor::handleInitialized, failed to register Reloading monitor" },
     "DaemonReloadingMonitor" },
   { "managerCallSsO ReloadUnit web.service replace",
     jobOf( 7 ),
     { failureOf( "asyncManagerCallSO GetUnit web.service" ),
       failureOf( "asyncManagerCallSsO ReloadUnit web.service replace" ),
       syncFailed +
          "UnitReloadingMonitor::handleInitialized, failed to register PropertiesChanged monitor "
          "for " +
          unitPath( "web.service" ) },
     "UnitReloadingMonitor" },
};

INSTANTIATE_TEST_SUITE_P(
   OfEach, AnInterruptedOperation, testing::ValuesIn( disturbed ),
   []( const auto& operation ) { return nameOf( operation.param.operation ); } );

struct ABlockedWait : ALibraryClient {};

TEST_F( ABlockedWait, endsWithTheResultOrReportsThatItWasInterrupted ) {
   std::optional< Interruptions > interruptions;
   // Only the wait is interrupted. The signal arrives after ten readings of the clock, if the wait
   // survives that many interruptions.
   moments.atReading( 1, [&] { interruptions.emplace(); } );
   moments.atReading( 10, [&] {
      interruptions.reset();
      manager.runSoon( { jobRemoved( 7, "done" ) } );
   } );
   const std::string outcome = callScripted( "StartUnit", { replyJob( 7 ) } );
   interruptions.reset();
   EXPECT_THAT(
      outcome,
      testing::AnyOf(
         jobOf( 7 ), syncFailed + "JobRemovedMonitor::wait, sd_bus_wait failed" + interrupted ) );
   EXPECT_EQ( systemState(), "running" );
}

// The second reading of the clock happens just before the wait blocks.
TEST_F( ABlockedWait, endsWhenTheBusDies ) {
   const std::pair< std::string, std::string > waits[]{ { "StartUnit", "JobRemovedMonitor" },
                                                        { "ReloadUnit", "UnitReloadingMonitor" },
                                                        { "Reload", "DaemonReloadingMonitor" } };
   for( const auto& [method, monitor] : waits ) {
      moments.clear();
      moments.atReading( 2, [&] { manager.runSoon( { killBus( bus ) } ); } );
      EXPECT_EQ(
         callScripted( method, { method == "Reload" ? reply() : replyJob( 7 ) } ),
         syncFailed + monitor + "::wait, sd_bus_process failed" + reset );
      manager.run( {} );
      bus.start();
      manager.run( { connect() } );
      EXPECT_EQ( systemState(), "running" );
   }
}

struct AFork : ALibraryClient {};

TEST_F( AFork, leavesTheParentsConnectionAloneWhateverTheChildDoes ) {
   sd_bus* const connection = client->sdbus();
   moments.clear();
   manager.run( {} );
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

TEST_F( AFork, inTheMiddleOfAWaitLeavesTheParentsMonitorAlone ) {
   moments.atReading( 2, [&] {
      manager.run( {} );
      ChildProcess child( [&] {
         client = nullptr;
         return 7;
      } );
      EXPECT_EQ( child.wait(), 7 );
      manager.runSoon( { jobRemoved( 7, "done" ) } );
   } );
   EXPECT_EQ( callScripted( "StartUnit", { replyJob( 7 ) } ), jobOf( 7 ) );
}

} // namespace

} // namespace SodrelTest
