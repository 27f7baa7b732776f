// The wait loop that all monitors share, and its clock.
#include <scripted/Monitors.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <string>

namespace SodrelTest {

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::uint64_t largestLimit = std::numeric_limits< std::uint64_t >::max();
constexpr std::int64_t largestReading = std::numeric_limits< std::int64_t >::max();

// The lines of a wait's log.
const std::string begin = "SignalMonitor/8 wait: Wait for Reloading signal\nsteady_clock::now()";
const std::string process = "\nsd_bus_process( bus1, null )";
const std::string read = "\nsd_bus_message_read( Reloading, b )\nReloading callback returns 0";
const std::string now = "\nsteady_clock::now()";

class TheWaitLoop : public BusTest {
 protected:
   void SetUp() override { takeLog(); }
   void TearDown() override {
      monitor = nullptr;
      BusTest::TearDown();
   }

   std::string waiting() { return daemonReloadingMonitor.waiting( *monitor ); }
   void limitIs( std::uint64_t nanoseconds ) {
      fieldIs( *monitor, "syncTimeout", Tessel::Interval( nanoseconds ) );
   }
   void finishes() {
      script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   }

   Tessel::Ptr< SignalMonitor > monitor = daemonReloadingMonitor.make( bus );
   const std::string timeout = daemonReloadingMonitor.timeout();
   const std::string negative = "Tessel::NegativeNotAllowed: a time interval cannot be negative";
};

TEST_F( TheWaitLoop, processesUntilTheQueueIsDrainedBeforeItLooksAtTheClock ) {
   script.next( "sd_bus_process", { .result = 1 } );
   script.next( "sd_bus_process", { .result = 7 } );
   finishes();
   EXPECT_EQ( waiting(), "true" );
   EXPECT_EQ( takeLog(), begin + process + process + process + read + read + process + now );
}

TEST_F( TheWaitLoop, writesItsLimitWithADecimalPointInEveryLocale ) {
   setenv( "LOCPATH", LOCALES, 1 );
   ASSERT_STREQ( std::setlocale( LC_ALL, "de_DE.UTF-8" ), "de_DE.UTF-8" );
   ASSERT_EQ( std::to_string( 0.5 ), "0,500000" );
   clock.readingsAre( { 0, 600 * second } );
   EXPECT_EQ( waiting(), timeout );
   std::setlocale( LC_ALL, "C" );
}

TEST_F( TheWaitLoop, waitsForTheRestOfTheLimitAfterEachDrainedPass ) {
   for( const std::vector< Signal >& signals :
        { std::vector< Signal >{}, { reloading( true ) }, { reloading( false ) } } ) {
      script.next( "sd_bus_process", dispatches( signals ) );
      script.next( "sd_bus_process", {} );
   }
   clock.readingsAre( { 5 * second, 6 * second, 105 * second, 600 * second } );
   EXPECT_EQ( waiting(), "true" );
   EXPECT_EQ(
      takeLog(), begin + process + process + now + "\nsd_bus_wait( bus1, 599000001 )" + process +
                    read + process + now + "\nsd_bus_wait( bus1, 500000001 )" + process + read +
                    process + now );
}

TEST_F( TheWaitLoop, continuesAfterAWaitThatTimedOut ) {
   script.next( "sd_bus_wait", { .result = 0 } );
   script.next( "sd_bus_wait", { .result = 1 } );
   clock.readingsAre( { 0, 1, 2, 600 * second } );
   EXPECT_EQ( waiting(), timeout );
}

TEST_F( TheWaitLoop, canBeRunAgainAfterAnException ) {
   script.next( "sd_bus_process", fails( EPIPE ) );
   EXPECT_EQ(
      waiting(), daemonReloadingMonitor.waitFailed( "sd_bus_process failed: Broken pipe" ) );
   finishes();
   EXPECT_EQ( waiting(), "true" );
}

TEST_F( TheWaitLoop, restartsItsClockWithEachWait ) {
   clock.readingsAre( { 0, 600 * second, 600 * second, 1199 * second } );
   EXPECT_EQ( waiting(), timeout );
   finishes();
   EXPECT_EQ( waiting(), "true" );
}

TEST_F( TheWaitLoop, endsAtTheLimitWhateverTheOutcome ) {
   struct {
      std::uint64_t limit;
      std::deque< std::int64_t > readings;
      const char* phrase;
   } const rows[] = {
      { 600 * second, { 0, 600 * second }, "600.000000 timeout" },
      { 600 * second, { 0, 601 * second }, "600.000000 timeout" },
      { 600 * second, { 0, largestReading }, "600.000000 timeout" },
      { 1'234'567'890, { 0, 2 * second }, "1.234568 timeout" },
      { 0, { 7 }, "0.000000 timeout" },
   };
   for( const auto& row : rows ) {
      limitIs( row.limit );
      clock.readingsAre( row.readings );
      finishes();
      EXPECT_EQ( waiting(), daemonReloadingMonitor.waitFailed( row.phrase ) );
      EXPECT_EQ( takeLog(), begin + process + read + read + process + now );
   }
}

// The differences are computed in double-precision seconds and truncated to nanoseconds.
TEST_F( TheWaitLoop, waitsOneMicrosecondMoreThanTheWholeOnesOfTheRest ) {
   struct {
      std::uint64_t limit;
      std::int64_t start;
      std::int64_t now;
      const char* microseconds;
   } const rows[] = {
      { 600 * second, 0, 0, "600000001" },
      { 600 * second, 0, 600 * second - 1, "1" },
      { 1'500, 0, 0, "2" },
      { 999, 0, 0, "1" },
      { 2 * second, 0, second / 2, "1500001" },
      // In doubles, 10 - 8.9 is a little less than 1.1.
      { 10 * second, 0, 8'900'000'000, "1100000" },
      // So far from the clock's zero, a double cannot represent single nanoseconds.
      { 10 * second, 9'000'000'000 * second, 9'000'000'000 * second + 1, "10000001" },
      { largestLimit, 0, 0, "18446744073709552" },
      // Too little to change the difference in seconds.
      { largestLimit, 0, 100, "18446744073709552" },
      // 2^63 nanoseconds.
      { largestLimit, 0, largestReading, "9223372036854776" },
   };
   for( const auto& row : rows ) {
      limitIs( row.limit );
      clock.readingsAre( { row.start, row.now } );
      script.next( "sd_bus_wait", fails( EIO ) );
      EXPECT_EQ(
         waiting(), daemonReloadingMonitor.waitFailed( "sd_bus_wait failed: Input/output error" ) );
      EXPECT_EQ(
         takeLog(), begin + process + now + "\nsd_bus_wait( bus1, " + row.microseconds + " )" );
   }
}

TEST_F( TheWaitLoop, refusesANegativeFirstReadingBeforeItProcesses ) {
   clock.readingsAre( { -1 } );
   EXPECT_EQ( waiting(), negative );
   EXPECT_EQ( takeLog(), begin );
}

TEST_F( TheWaitLoop, refusesALaterReadingThatIsNegativeOrBeforeTheFirst ) {
   for( const std::int64_t later : { std::numeric_limits< std::int64_t >::min(), second } ) {
      clock.readingsAre( { 2 * second, later } );
      EXPECT_EQ( waiting(), negative );
      EXPECT_EQ( takeLog(), begin + process + now );
   }
}

TEST_F( TheWaitLoop, checksForAFailedCallbackBetweenPositiveResultsToo ) {
   script.next( "sd_bus_process", dispatches( { signalOf( daemonReloadingMonitor, u( 1 ) ) } ) );
   EXPECT_EQ( waiting(), daemonReloadingMonitor.callbackFailed() );
   EXPECT_EQ(
      takeLog(), begin + process +
                    "\nsd_bus_message_read( Reloading, b )\n"
                    "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
                    "Failed to parse Reloading signal. )\n"
                    "Reloading callback returns -6" );
}

} // namespace

} // namespace SodrelTest
