// Waits for the end of a job, with signals that systemd would not send.
#include <string>
#include <vector>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

const std::string waiting = syncFailed + "JobRemovedMonitor::wait, ";

struct AWaitForAJob : ALibraryClient {
   std::string whenSaid( const Script& script ) { return callScripted( "StartUnit", script ); }

   static std::string endedIn( const std::string& result ) {
      return jobFailed + "wait, job " + jobOf( 7 ) + " result: " + result;
   }
};

// Signals sent before the reply have arrived when the wait begins; signals sent after it may arrive
// later.
TEST_F( AWaitForAJob, endsWithTheLastResultBeforeOrAfterTheReply ) {
   EXPECT_EQ( whenSaid( { jobRemoved( 7, "done" ), replyJob( 7 ) } ), jobOf( 7 ) );
   EXPECT_EQ( whenSaid( { replyJob( 7 ), jobRemoved( 7, "done" ) } ), jobOf( 7 ) );
   EXPECT_EQ( whenSaid( { jobRemoved( 7, "failed" ), replyJob( 7 ) } ), endedIn( "failed" ) );
   EXPECT_EQ(
      whenSaid( { jobRemoved( 7, "done" ), jobRemoved( 7, "failed" ), replyJob( 7 ) } ),
      endedIn( "failed" ) );
   // An empty result does not count.
   EXPECT_EQ(
      whenSaid( { replyJob( 7 ), jobRemoved( 7, "" ), jobRemoved( 7, "done" ) } ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, succeedsIfDoneOrSkippedAndReportsAnyOtherResult ) {
   for( const std::string result : { "done", "skipped" } ) {
      EXPECT_EQ( whenSaid( { replyJob( 7 ), jobRemoved( 7, result ) } ), jobOf( 7 ) );
   }
   for( const std::string result :
        { "canceled", "timeout", "failed", "dependency", "invalid", "assert", "unsupported",
          "collected", "once", "frozen", "concurrency", "Done", "done ", " ", "\u00fc{}%s" } ) {
      EXPECT_EQ( whenSaid( { replyJob( 7 ), jobRemoved( 7, result ) } ), endedIn( result ) );
   }
}

TEST_F( AWaitForAJob, ignoresTheJobsOfOthers ) {
   EXPECT_EQ(
      whenSaid( { jobRemoved( 6, "failed" ), jobRemoved( 0, "failed" ), replyJob( 7 ),
                  jobRemoved( 8, "failed" ), jobRemoved( 77, "failed" ),
                  jobRemoved( 7, "done" ) } ),
      jobOf( 7 ) );
}

TEST_F( AWaitForAJob, recognisesItsJobByTheNumberAlone ) {
   for( const Body& content : { body( "uoss", 7, "/elsewhere", "", "done" ),
                                body( "uossu", 7, "/more", "web.service", "done", 1 ) } ) {
      EXPECT_EQ( whenSaid( { replyJob( 7 ), signal( "JobRemoved", content ) } ), jobOf( 7 ) );
   }
   for( const uint32_t id : { 0U, 4294967295U } ) {
      EXPECT_EQ( whenSaid( { replyJob( id ), jobRemoved( id, "done" ) } ), jobOf( id ) );
   }
}

TEST_F( AWaitForAJob, refusesAReplyThatNamesNeitherAJobNorAUnit ) {
   for( const std::string path :
        { "/", "/org/freedesktop/systemd1/job", "/org/freedesktop/systemd1/job/x",
          "/org/freedesktop/systemd1/job/4294967296", "/org/freedesktop/systemd1/units/a" } ) {
      EXPECT_EQ(
         whenSaid( { reply( body( "o", path ) ), jobRemoved( 7, "done" ) } ),
         jobFailed + "parseJobId, failed to parse job: " + path );
   }
   // If it names a unit, however, there is nothing to wait for.
   const std::string unit = unitPath( "web.service" );
   EXPECT_EQ( whenSaid( { reply( body( "o", unit ) ) } ), unit );
}

TEST_F( AWaitForAJob, failsIfASignalCannotBeReadWhateverTheJobDid ) {
   for( const Body& odd : std::vector< Body >{
           {},
           body( "s", "done" ),
           body( "u", 7 ),
           body( "uo", 7, "/a" ),
           body( "uos", 7, "/a", "web.service" ),
           body( "usss", 7, "/a", "web.service", "done" ),
           body( "uosv", 7, "/a", "web.service", "s", "done" ),
           body( "(uoss)", 7, "/a", "web.service", "done" ),
           body( "as", 1, "done" ),
        } ) {
      SCOPED_TRACE( odd.signature );
      EXPECT_EQ(
         whenSaid( { signal( "JobRemoved", odd ), jobRemoved( 7, "done" ), replyJob( 7 ) } ),
         waiting + "callback handling failed for " + jobOf( 7 ) );
   }
}

TEST_F( AWaitForAJob, ignoresSignalsOfOtherSendersAndObjects ) {
   const Body failed = body( "uoss", 7, jobOf( 7 ), "web.service", "failed" );
   EXPECT_EQ(
      whenSaid( { byStranger( jobRemoved( 7, "failed" ) ), byStranger( signal( "JobRemoved", {} ) ),
                  signal( "/elsewhere", managerInterface, "JobRemoved", failed ),
                  signal( managerPath, unitInterface, "JobRemoved", failed ),
                  signal( "JobNew", failed ), jobRemoved( 7, "done" ), replyJob( 7 ) } ),
      jobOf( 7 ) );
}

TEST_F( AWaitForAJob, timesOutIfNoSignalNamesTheJob ) {
   moments.hurryWaits( true );
   EXPECT_EQ(
      whenSaid( { replyJob( 7 ), jobRemoved( 8, "done" ) } ),
      waiting + "600.000000 timeout for " + jobOf( 7 ) );
}

TEST_F( AWaitForAJob, wakesUpWhenTheSignalArrives ) {
   // The first pass has found nothing by the second reading.
   moments.atReading( 2, [&] { manager.runSoon( { jobRemoved( 7, "done" ) } ); } );
   EXPECT_EQ( whenSaid( { replyJob( 7 ) } ), jobOf( 7 ) );
}

} // namespace

} // namespace SodrelTest
