// The wait loop that all monitors share, with its clock.
#include <scripted/MonitorTest.h>

#include <cerrno>
#include <limits>

namespace Sodrel::Test {

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr const char* timeout = "Sodrel::SdbusSyncException: "
                                "DaemonReloadingMonitor::wait, 600.000000 timeout";

class TheWaitLoop : public MonitorOf< DaemonReloadingMonitor > {
 protected:
   std::string waiting() {
      return thrownBy( [this] { returned = monitor->wait( std::nullopt ); } );
   }
   void timeoutIs( std::uint64_t nanoseconds ) {
      fieldIs( *monitor, "syncTimeout", Tessel::Interval( nanoseconds ) );
   }
   // The microseconds that the loop waits for, with these readings of the clock.
   std::string waitedFor( std::int64_t start, std::int64_t now ) {
      script.next( "sd_bus_wait", fails( EIO ) );
      clock.readingsAre( { start, now } );
      waiting();
      const std::string log = takeLog();
      const std::string call = "sd_bus_wait( bus1, ";
      const std::size_t number = log.rfind( call );
      return number == std::string::npos ? log : log.substr( number + call.size() );
   }
   bool returned = false;
};

TEST_F( TheWaitLoop, processesUntilTheQueueIsDrainedBeforeItLooksAtTheClock ) {
   script.next( "sd_bus_process", { .result = 1 } );
   script.next( "sd_bus_process", { .result = 7 } );
   script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   EXPECT_EQ( waiting(), "nothing" );
   EXPECT_TRUE( returned );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "sd_bus_process( bus1, null )",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      reloadingRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( TheWaitLoop, waitsForTheRestOfTheLimitAfterEachDrainedPass ) {
   pass( {} );
   pass( { reloading( true ) } );
   pass( { reloading( false ) } );
   clock.readingsAre( { 5 * second, 6 * second, 105 * second, 600 * second } );
   EXPECT_EQ( waiting(), "nothing" );
   EXPECT_TRUE( returned );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
      "sd_bus_wait( bus1, 599000001 )",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
      "sd_bus_wait( bus1, 500000001 )",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( TheWaitLoop, goesOnAfterAWaitThatRanOut ) {
   script.next( "sd_bus_wait", { .result = 0 } );
   script.next( "sd_bus_wait", { .result = 1 } );
   clock.readingsAre( { 0, 1, 2, 600 * second } );
   EXPECT_EQ( waiting(), timeout );
}

TEST_F( TheWaitLoop, throwsBeforeASecondLookAtTheClockWhenTheFirstPassFails ) {
   script.next( "sd_bus_process", fails( EPIPE ) );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, sd_bus_process failed: "
                 "Broken pipe" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
   } );
}

TEST_F( TheWaitLoop, throwsWhenTheBusCannotBeWaitedFor ) {
   script.next( "sd_bus_wait", fails( EINTR ) );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, sd_bus_wait failed: "
                 "Interrupted system call" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
      "sd_bus_wait( bus1, 600000001 )",
   } );
}

TEST_F( TheWaitLoop, givesTheSystemsTextForAnErrorNumberThatItDoesNotKnow ) {
   script.next( "sd_bus_process", fails( 4095 ) );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, sd_bus_process failed: "
                 "Unknown error 4095" );
}

TEST_F( TheWaitLoop, canBeRunAgainAfterAnException ) {
   script.next( "sd_bus_process", fails( EPIPE ) );
   waiting();
   pass( { reloading( true ), reloading( false ) } );
   EXPECT_EQ( waiting(), "nothing" );
   EXPECT_TRUE( returned );
   EXPECT_EQ( script.alive(), "bus1 slot1" );
}

TEST_F( TheWaitLoop, restartsItsClockWithEachWait ) {
   clock.readingsAre( { 0, 600 * second, 600 * second, 1199 * second } );
   EXPECT_EQ( waiting(), timeout );
   script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   EXPECT_EQ( waiting(), "nothing" );
}

TEST_F( TheWaitLoop, endsAtExactlyTheLimit ) {
   clock.readingsAre( { 0, 600 * second } );
   EXPECT_EQ( waiting(), timeout );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( TheWaitLoop, stillWaitsOneNanosecondBeforeTheLimit ) {
   EXPECT_EQ( waitedFor( 0, 600 * second - 1 ), "1 )" );
}

TEST_F( TheWaitLoop, waitsOneMicrosecondMoreThanTheWholeOnesOfTheRest ) {
   EXPECT_EQ( waitedFor( 0, 0 ), "600000001 )" );
   timeoutIs( 1'500 );
   EXPECT_EQ( waitedFor( 0, 0 ), "2 )" );
   timeoutIs( 999 );
   EXPECT_EQ( waitedFor( 0, 0 ), "1 )" );
   timeoutIs( 2 * second );
   EXPECT_EQ( waitedFor( 0, second / 2 ), "1500001 )" );
}

// The differences are taken in double-precision seconds and cut to nanoseconds.
TEST_F( TheWaitLoop, reckonsInDoublePrecisionSeconds ) {
   timeoutIs( 10 * second );
   // 10 - 8.9 is a little less than 1.1 there.
   EXPECT_EQ( waitedFor( 0, 8'900'000'000 ), "1100000 )" );
   // At this distance from the clock's zero a double no longer holds single nanoseconds.
   EXPECT_EQ( waitedFor( 9'000'000'000'000'000'000, 9'000'000'000'000'000'001 ), "10000001 )" );
}

TEST_F( TheWaitLoop, ignoresAnEventThatIsNoticedAfterTheLimit ) {
   script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   clock.readingsAre( { 0, 601 * second } );
   EXPECT_EQ( waiting(), timeout );
}

TEST_F( TheWaitLoop, endsAfterTheFirstDrainedPassWhenTheLimitIsZero ) {
   timeoutIs( 0 );
   script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, 0.000000 timeout" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      reloadingRead,
      reloadingRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( TheWaitLoop, showsTheLimitWithSixDecimals ) {
   timeoutIs( 1'234'567'890 );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, 1.234568 timeout" );
   timeoutIs( std::numeric_limits< std::uint64_t >::max() );
   clock.readingsAre( { 0 } );
   script.next( "sd_bus_wait", fails( EIO ) );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, sd_bus_wait failed: "
                 "Input/output error" );
}

TEST_F( TheWaitLoop, waitsForTheLargestIntervalWhenThatIsTheRest ) {
   timeoutIs( std::numeric_limits< std::uint64_t >::max() );
   EXPECT_EQ( waitedFor( 0, 0 ), "18446744073709552 )" );
   // Not enough to change the difference in seconds.
   EXPECT_EQ( waitedFor( 0, 100 ), "18446744073709552 )" );
}

TEST_F( TheWaitLoop, takesTheLargestClockReadings ) {
   constexpr std::int64_t largest = std::numeric_limits< std::int64_t >::max();
   clock.readingsAre( { 0, largest } );
   EXPECT_EQ( waiting(), timeout );
   timeoutIs( std::numeric_limits< std::uint64_t >::max() );
   // 2^63 nanoseconds.
   EXPECT_EQ( waitedFor( 0, largest ), "9223372036854776 )" );
}

TEST_F( TheWaitLoop, refusesANegativeFirstReadingBeforeItProcesses ) {
   clock.readingsAre( { -1 } );
   EXPECT_EQ( waiting(), "Tessel::NegativeNotAllowed: a time interval cannot be negative" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
   } );
}

TEST_F( TheWaitLoop, refusesANegativeLaterReading ) {
   clock.readingsAre( { 0, std::numeric_limits< std::int64_t >::min() } );
   EXPECT_EQ( waiting(), "Tessel::NegativeNotAllowed: a time interval cannot be negative" );
}

TEST_F( TheWaitLoop, refusesAClockThatGoesBackwards ) {
   clock.readingsAre( { 2 * second, second } );
   EXPECT_EQ( waiting(), "Tessel::NegativeNotAllowed: a time interval cannot be negative" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( TheWaitLoop, looksForAFailedCallbackAlsoBetweenPositiveResults ) {
   script.next( "sd_bus_process", dispatches( { managerSignal( "Reloading", s( "yes" ) ) } ) );
   EXPECT_EQ(
      waiting(),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, callback handling failed" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for Reloading signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "sd_bus_message_read( Reloading, b )",
      "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
      "Failed to parse Reloading signal. )",
      "Reloading callback gives -6",
   } );
}

TEST_F( TheWaitLoop, looksForAFailedCallbackAfterTheWaitAndBeforeItProcesses ) {
   script.next( "sd_bus_process", {} );
   script.next( "sd_bus_process", dispatches( { managerSignal( "Reloading", {} ) } ) );
   script.next( "sd_bus_message_read", fails( EBADMSG ) );
   script.next( "sd_bus_wait", { .result = 1 } );
   EXPECT_EQ(
      waiting(),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, callback handling failed" );
}

TEST_F( TheWaitLoop, reportsAConnectionThatWasClosedUnderTheMonitor ) {
   sd_bus_flush_close_unref( bus );
   EXPECT_EQ(
      waiting(), "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, sd_bus_process failed: "
                 "Connection reset by peer" );
   bus->open = true; // for the check at the end
}

} // namespace

} // namespace Sodrel::Test
