// The assertions that end the process, and the repetition of a call before they do.
//
// The factories of the monitors are replaced by name: a monitor of a job or a unit never reports
// failure by itself.
#include <Sodrel/SignalMonitor.h>

#include <scripted/MonitorTest.h>

#include <csignal>
#include <cstdio>
#include <deque>
#include <gmock/gmock.h>
#include <regex>

namespace Sodrel::Test {

namespace {

// What the waits return, one after the other.
std::deque< bool > waits;
// The objects that were waited for.
std::vector< std::string > objects;

template< typename Monitor >
class Unlucky : public Monitor {
   TESSEL_ENTITY( Unlucky )

 public:
   using Monitor::Monitor;

   bool wait( const Orl::Optional< Tessel::String >& object ) override {
      objects.emplace_back( object.hasValue() ? ( *object ).data() : "none" );
      const bool outcome = waits.front();
      waits.pop_front();
      return outcome;
   }

 protected:
   ~Unlucky() override = default;
};

template< typename Monitor >
Orl::AllocTrackTypeInfo* Unlucky< Monitor >::memAllocationTracker_ = nullptr;

template< typename Monitor >
Tessel::TypeRef Unlucky< Monitor >::typeData() const {
   return Monitor::typeData();
}

} // namespace

// The linker gives these names to the calls of the factories.
Tessel::Ptr< JobRemovedMonitor >
unluckyJobMonitor( sd_bus* bus ) asm( "__wrap__ZN6Sodrel24jobRemovedMonitorFactoryEP6sd_bus" );
Tessel::Ptr< UnitReloadingMonitor >
unluckyUnitMonitor( sd_bus* bus, const Tessel::String& unitPath ) asm(
   "__wrap__ZN6Sodrel27unitReloadingMonitorFactoryEP6sd_busRKN6Tessel6StringE" );

Tessel::Ptr< JobRemovedMonitor > unluckyJobMonitor( sd_bus* bus ) {
   return Tessel::ptrIsImpl< Unlucky< JobRemovedMonitor > >( bus );
}

Tessel::Ptr< UnitReloadingMonitor >
unluckyUnitMonitor( sd_bus* bus, const Tessel::String& unitPath ) {
   return Tessel::ptrIsImpl< Unlucky< UnitReloadingMonitor > >( bus, unitPath );
}

namespace {

constexpr const char* secondJob = "/org/freedesktop/systemd1/job/43";

// Standard error with the line number of an assertion made "LINE".
std::string withoutLine( const std::string& text ) {
   return std::regex_replace(
      text, std::regex( "(src/Sodrel/[A-Za-z]+\\.cpp):[0-9]+: " ), "$1:LINE: " );
}

// Ends the process with exactly this on standard error.
#define EXPECT_END( statement, text )                                                              \
   EXPECT_EXIT(                                                                                    \
      statement, testing::KilledBySignal( SIGABRT ),                                               \
      testing::ResultOf( &withoutLine, testing::Eq( std::string( text ) ) ) )

class ARepeatedCall : public ClientTest {
 protected:
   void SetUp() override {
      objects.clear();
      script.next( "sd_bus_call_method", replies( o( jobPath ) ) );
      script.next( "sd_bus_call_method", replies( o( secondJob ) ) );
   }
   void TearDown() override {
      script.forgetLeftOver();
      ClientTest::TearDown();
   }
};

class ARepeatedCallDeathTest : public ARepeatedCall {};

using AMonitorDeathTest = MonitorTest;

// Shows traces where the assertion is seen, too.
class StderrSink : public Tessel::TraceSink {
 public:
   void traceIs( const Tessel::TextTrace& trace ) override {
      std::fprintf( stderr, "%s\n", std::string( trace.text ).c_str() );
   }
};

StderrSink stderrSink;

TEST_F( ARepeatedCall, givesThePathOfTheSecondCallWithOneString ) {
   waits = { false, true };
   EXPECT_EQ( client->managerCallSO( "Frob", "foo.service", false ), secondJob );
   EXPECT_EQ( objects, ( std::vector< std::string >{ jobPath, secondJob } ) );
   expectLog( {
      "Sodrel/8 managerCallSO: Call sd-bus systemd manager Frob foo.service, async=false",
      probed( "bus1" ),
      "SignalMonitor/8 handleInitialized: Initialize JobRemovedMonitor",
      matched( "bus1", managerPath, managerInterface, "JobRemoved" ),
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "Frob", "s, foo.service" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "Frob", "s, foo.service" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message2, o )",
      "sd_bus_message_unref( message2 )",
      "SignalMonitor/8 handleDeleted: Deinitialize JobRemovedMonitor",
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( ARepeatedCall, givesThePathOfTheSecondCallWithTwoStrings ) {
   waits = { false, true };
   EXPECT_EQ( client->managerCallSsO( "StartUnit", "foo.service", "fail", false ), secondJob );
   EXPECT_EQ( objects, ( std::vector< std::string >{ jobPath, secondJob } ) );
}

TEST_F( ARepeatedCall, asksForTheUnitOnceOnly ) {
   script.next( "sd_bus_call_method", replies( o( "/org/freedesktop/systemd1/job/44" ) ) );
   waits = { false, true };
   EXPECT_EQ(
      client->managerCallSsO( "ReloadUnit", "foo.service", "fail", false ),
      "/org/freedesktop/systemd1/job/44" );
   EXPECT_EQ(
      objects, ( std::vector< std::string >{ secondJob, "/org/freedesktop/systemd1/job/44" } ) );
   const std::string log = takeLog();
   EXPECT_EQ( log.find( "GetUnit" ), log.rfind( "GetUnit" ) );
}

TEST_F( ARepeatedCallDeathTest, endsTheProcessAfterTwoReloadsWithoutAStart ) {
   for( int i = 0; i < 2; ++i ) {
      script.next( "sd_bus_process", dispatches( { reloading( false ) } ) );
      script.next( "sd_bus_process", {} );
   }
   EXPECT_END(
      client->managerCall( "Reload", false ),
      "src/Sodrel/Sodrel.cpp:LINE: void Sodrel::Sdbus::managerCall(const String&, bool): "
      "Assertion `signalMonitor->wait( std::nullopt )' failed.\n" );
}

TEST_F( ARepeatedCallDeathTest, endsTheProcessAfterTwoFalseWaitsOfACallWithOneString ) {
   waits = { false, false };
   EXPECT_END(
      client->managerCallSO( "Frob", "foo.service", false ),
      "src/Sodrel/Sodrel.cpp:LINE: Orl::String "
      "Sodrel::Sdbus::managerCallSO(const String&, const String&, bool): "
      "Assertion `signalMonitor->wait( object )' failed.\n" );
}

TEST_F( ARepeatedCallDeathTest, endsTheProcessAfterTwoFalseWaitsOfACallWithTwoStrings ) {
   for( const char* const method : { "StartUnit", "ReloadUnit" } ) {
      waits = { false, false };
      EXPECT_END(
         client->managerCallSsO( method, "foo.service", "fail", false ),
         "src/Sodrel/Sodrel.cpp:LINE: Orl::String "
         "Sodrel::Sdbus::managerCallSsO(const String&, const String&, const String&, bool): "
         "Assertion `signalMonitor->wait( object )' failed.\n" );
   }
}

TEST_F( AMonitorDeathTest, ofAJobEndsTheProcessWithoutAnObjectBeforeItTraces ) {
   const auto monitor = Tessel::ptrIsImpl< JobRemovedMonitor >( bus );
   EXPECT_END(
      {
         Tessel::traceSinkIs( &stderrSink );
         monitor->wait( std::nullopt );
      },
      "src/Sodrel/SignalMonitor.cpp:LINE: virtual bool Sodrel::JobRemovedMonitor::wait(const "
      "Orl::Optional<Tessel::String>&): Assertion `object.hasValue()' failed.\n" );
}

TEST_F( AMonitorDeathTest, ofTheManagerEndsTheProcessWithAnObjectAfterItTraces ) {
   const auto monitor = daemonReloadingMonitorFactory( bus );
   EXPECT_END(
      {
         Tessel::traceSinkIs( &stderrSink );
         monitor->wait( Tessel::String() );
      },
      "Wait for Reloading signal\n"
      "src/Sodrel/SignalMonitor.cpp:LINE: virtual bool Sodrel::DaemonReloadingMonitor::wait(const "
      "Orl::Optional<Tessel::String>&): Assertion `!object.hasValue()' failed.\n" );
}

} // namespace

} // namespace Sodrel::Test
