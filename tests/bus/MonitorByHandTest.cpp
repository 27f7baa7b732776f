// Monitors that the caller makes, keeps and waits with again, alone and beside others.
#include <string>

#include <Sodrel/SignalMonitor.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

using Sodrel::jobRemovedMonitorFactory;
using Sodrel::SignalMonitor;

struct AMonitorByHand : ALibraryClient {
   static void limitIs( SignalMonitor& monitor, const Tessel::Interval& limit ) {
      Tessel::memberOf( monitor, "syncTimeout" ).write( monitor, &limit );
   }

   static std::string outcomeOfWait( SignalMonitor& monitor, uint32_t job ) {
      try {
         return monitor.wait( Tessel::String( jobOf( job ).c_str() ) ) ? "seen" : "not seen";
      } catch( const Tessel::Exception& exception ) {
         return std::string( exception.name() ) + ": " + exception.what();
      }
   }

   // What a wait throws that has not heard of the job within its limit.
   static std::string timeout( const std::string& seconds, uint32_t job ) {
      return syncFailed + "JobRemovedMonitor::wait, " + seconds + " timeout for " + jobOf( job );
   }
};

TEST_F( AMonitorByHand, forgetsAnEndThatCameTooLateForTheWaitBefore ) {
   const auto monitor = jobRemovedMonitorFactory( client->sdbus() );
   manager.run( { jobRemoved( 7, "done" ) } );
   limitIs( *monitor, Tessel::Interval( 0 ) );
   EXPECT_EQ( outcomeOfWait( *monitor, 7 ), timeout( "0.000000", 7 ) );

   limitIs( *monitor, Tessel::Interval( 600'000'000'000 ) );
   moments.hurryWaits( true );
   EXPECT_EQ( outcomeOfWait( *monitor, 7 ), timeout( "600.000000", 7 ) );
   EXPECT_EQ( outcomeOf( "unitPropertyS web.service ActiveState" ), "active" );
}

TEST_F( AMonitorByHand, missesItsEndWhileAnotherOfItsConnectionWaits ) {
   const auto first = jobRemovedMonitorFactory( client->sdbus() );
   const auto second = jobRemovedMonitorFactory( client->sdbus() );
   const Tessel::Ptr< Sdbus > another = sdbusFactory();
   const auto third = jobRemovedMonitorFactory( another->sdbus() );
   manager.run( { jobRemoved( 8, "done" ), jobRemoved( 7, "done" ) } );

   EXPECT_EQ( outcomeOfWait( *first, 7 ), "seen" );

   moments.hurryWaits( true );
   EXPECT_EQ( outcomeOfWait( *second, 8 ), timeout( "600.000000", 8 ) );
   EXPECT_EQ( outcomeOfWait( *third, 8 ), "seen" );
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

} // namespace

} // namespace SodrelTest
