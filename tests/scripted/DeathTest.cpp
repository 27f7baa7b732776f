// The assertions that end the process.
#include <scripted/Monitors.h>
#include <support/Abort.h>

#include <csignal>
#include <cstdio>
#include <cstring>

namespace SodrelTest {

namespace {

// Matches the end of the process with exactly this assertion on standard error, after `traces`.
#define EXPECT_ASSERTION( statement, file, function, expression, traces )                          \
   EXPECT_EXIT(                                                                                    \
      statement, testing::KilledBySignal( SIGABRT ),                                               \
      beforeAbort( testing::MatchesRegex(                                                          \
         plain( traces "src/Sodrel/" file ".cpp:" ) + "[0-9]+" +                                   \
         plain( ": " function ": Assertion `" expression "' failed.\n" ) ) ) )

// A regular expression for the text itself.
std::string plain( const std::string& text ) {
   std::string regex;
   for( const char c : text ) {
      regex += std::strchr( ".*()", c ) ? std::string( "[" ) + c + "]" : std::string( 1, c );
   }
   return regex;
}

using AClientDeathTest = ClientTest;

class AMonitorDeathTest : public BusTest {
 protected:
   // Waits with traces on standard error, too.
   void wait( SignalMonitor& monitor, const Orl::Optional< Tessel::String >& object ) {
      onTrace = []( const Tessel::TextTrace& trace ) {
         std::fprintf( stderr, "%s\n", std::string( trace.text ).c_str() );
      };
      monitor.wait( object );
   }
};

TEST_F( AClientDeathTest, endsAfterTwoReloadsWithoutAStart ) {
   EXPECT_ASSERTION(
      {
         for( int i = 0; i < 2; ++i ) {
            script.next( "sd_bus_process", dispatches( { reloading( false ) } ) );
            script.next( "sd_bus_process", {} );
         }
         client->managerCall( "Reload", false );
      },
      "Sodrel", "void Sodrel::Sdbus::managerCall(const String&, bool)",
      "signalMonitor->wait( std::nullopt )", "" );
}

TEST_F( AClientDeathTest, endsAfterTwoFalseWaitsOfACallWithOneString ) {
   EXPECT_ASSERTION(
      {
         unluckyWaits.assign( 2, false );
         client->managerCallSO( "Frob", "foo.service", false );
      },
      "Sodrel", "Orl::String Sodrel::Sdbus::managerCallSO(const String&, const String&, bool)",
      "signalMonitor->wait( object )", "" );
}

TEST_F( AClientDeathTest, endsAfterTwoFalseWaitsOfACallWithTwoStrings ) {
   for( const char* const method : { "StartUnit", "ReloadUnit" } ) {
      EXPECT_ASSERTION(
         {
            unluckyWaits.assign( 2, false );
            client->managerCallSsO( method, "foo.service", "fail", false );
         },
         "Sodrel",
         "Orl::String "
         "Sodrel::Sdbus::managerCallSsO(const String&, const String&, const String&, bool)",
         "signalMonitor->wait( object )", "" );
   }
}

TEST_F( AMonitorDeathTest, ofAJobEndsWithoutAnObjectBeforeItTraces ) {
   const auto monitor = jobRemovedMonitor.make( bus );
   EXPECT_ASSERTION(
      wait( *monitor, std::nullopt ), "SignalMonitor",
      "virtual bool Sodrel::JobRemovedMonitor::wait(const Orl::Optional<Tessel::String>&)",
      "object.hasValue()", "" );
}

TEST_F( AMonitorDeathTest, ofTheManagerEndsWithAnObjectAfterItTraces ) {
   const auto monitor = daemonReloadingMonitor.make( bus );
   EXPECT_ASSERTION(
      wait( *monitor, Tessel::String() ), "SignalMonitor",
      "virtual bool Sodrel::DaemonReloadingMonitor::wait(const Orl::Optional<Tessel::String>&)",
      "!object.hasValue()", "Wait for Reloading signal\n" );
}

} // namespace

} // namespace SodrelTest
