// Monitors that callers create, keep and use again, alone and next to others.
#include <functional>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include <Sodrel/SignalMonitor.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

using Sodrel::jobRemovedMonitorFactory;
using Sodrel::SignalMonitor;

// What an operation throws, as "class: text".
std::string thrownBy( const std::function< void() >& operation ) {
   try {
      operation();
   } catch( const Tessel::Exception& exception ) {
      return std::string( exception.name() ) + ": " + exception.what();
   }
   return "nothing";
}

struct AMonitorByHand : ALibraryClient {
   static void limitIs( SignalMonitor& monitor, const Tessel::Interval& limit ) {
      Tessel::memberOf( monitor, "syncTimeout" ).write( monitor, &limit );
   }

   static std::string thrownByWait( SignalMonitor& monitor, uint32_t job ) {
      return thrownBy( [&] { EXPECT_TRUE( monitor.wait( Tessel::String( jobOf( job ) ) ) ); } );
   }

   // What a wait throws if no signal about the job arrives within its limit.
   static std::string timeout( const std::string& seconds, uint32_t job ) {
      return syncFailed + "JobRemovedMonitor::wait, " + seconds + " timeout for " + jobOf( job );
   }
};

TEST_F( AMonitorByHand, forgetsAnEndThatCameTooLateForTheWaitBefore ) {
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   manager.run( { jobRemoved( 7, "done" ) } );
   limitIs( *monitor, Tessel::Interval( 0 ) );
   EXPECT_EQ( thrownByWait( *monitor, 7 ), timeout( "0.000000", 7 ) );

   limitIs( *monitor, Tessel::Interval( 600'000'000'000 ) );
   moments.hurryWaits( true );
   EXPECT_EQ( thrownByWait( *monitor, 7 ), timeout( "600.000000", 7 ) );
   EXPECT_EQ( outcomeOf( "unitPropertyS web.service ActiveState" ), "active" );
}

TEST_F( AMonitorByHand, missesItsEndWhileAnotherOfItsConnectionWaits ) {
   const auto first = jobRemovedMonitorFactory( client->sdbus() );
   const auto second = jobRemovedMonitorFactory( client->sdbus() );
   const Tessel::Ptr< Sdbus > another = sdbusFactory();
   const auto third = jobRemovedMonitorFactory( another->sdbus() );
   manager.run( { jobRemoved( 8, "done" ), jobRemoved( 7, "done" ) } );

   EXPECT_EQ( thrownByWait( *first, 7 ), "nothing" );

   moments.hurryWaits( true );
   EXPECT_EQ( thrownByWait( *second, 8 ), timeout( "600.000000", 8 ) );
   EXPECT_EQ( thrownByWait( *third, 8 ), "nothing" );
}

TEST_F( AMonitorByHand, stillWritesToTheRecordThatWasTakenFromIt ) {
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   const auto record = monitor->dataDel();
   manager.run( { jobRemoved( 0, "done" ) } );
   while( sd_bus_process( client->sdbus(), nullptr ) > 0 ) {
   }
   Tessel::String result;
   Tessel::memberOf( *record, "result" ).read( *record, &result );
   EXPECT_EQ( std::string( result ), "done" );
}

// A client whose connection another thread shuts down, through a duplicate descriptor.
class AClientThatGivesUp : public ALibraryClient {
 protected:
   ~AClientThatGivesUp() override { close( descriptor ); }

   void giveUp() const { checked( shutdown( descriptor, SHUT_RDWR ), "shutdown" ); }

   const int descriptor = dup( sd_bus_get_fd( client->sdbus() ) );
};

TEST_F( AClientThatGivesUp, endsItsWaitAndIsRenewed ) {
   manager.onCall( "StartUnit", { replyJob( 7 ) } );
   moments.atReading( 2, [&] { giveUp(); } );
   EXPECT_EQ(
      call( "StartUnit" ), syncFailed + "JobRemovedMonitor::wait, sd_bus_process failed" + reset );
   EXPECT_EQ( systemState(), "running" );
}

TEST_F( AClientThatGivesUp, endsItsCallAndIsRenewed ) {
   manager.onCall( "StartUnit", { custom( [&]( sd_bus_message* ) { giveUp(); } ) } );
   EXPECT_EQ(
      call( "StartUnit" ),
      callFailed + "asyncManagerCallSsO, sd-bus call StartUnit web.service replace failed" +
         reset );
   EXPECT_EQ( systemState(), "running" );
}

TEST_F( AClientThatGivesUp, beforeACallIsRenewedByIt ) {
   giveUp();
   EXPECT_EQ( call( "StartUnit" ), jobOf( 1 ) );
}

TEST_F( AClientThatGivesUp, beforeACallStillEndsTheWaitOfAMonitorByHand ) {
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   giveUp();
   const auto job = client->asyncManagerCallSsO( "StartUnit", "web.service", "replace" );
   EXPECT_EQ(
      thrownBy( [&] { monitor->wait( job ); } ),
      syncFailed + "JobRemovedMonitor::wait, sd_bus_process failed" + reset );
}

} // namespace

} // namespace SodrelTest
