// Waits for the end of a job, against a manager that says things which systemd would not.
#include <string>
#include <vector>

#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

const std::string waiting = "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, ";

Script withReply( Script script ) {
   script.insert( script.begin(), reply( jobPath( 7 ) ) );
   return script;
}

struct AWaitForAJob : ALibraryClient {};

// What is said before the reply is there when the wait begins; what is said after it may come
// later.
TEST_F( AWaitForAJob, endsWithTheResultWhereverTheReplyStands ) {
   manager.onCall( "StartUnit", { jobRemoved( 7, "done" ), reply( jobPath( 7 ) ) } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ), jobRemoved( 7, "done" ) } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
   manager.onCall( "StartUnit", { jobRemoved( 7, "failed" ), reply( jobPath( 7 ) ) } );
   EXPECT_EQ(
      call( "StartUnit" ),
      "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + jobOf( 7 ) + " result: failed" );
}

TEST_F( AWaitForAJob, succeedsWhenItWasDoneOrSkippedAndNamesAnyOtherResult ) {
   for( const std::string result : { "done", "skipped" } ) {
      manager.onCall( "StartUnit", withReply( { jobRemoved( 7, result ) } ) );
      EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
   }
   for( const std::string result :
        { "canceled", "timeout", "failed", "dependency", "invalid", "assert", "unsupported",
          "collected", "once", "frozen", "concurrency", "Done", "done ", " ", "\u00fc{}%s" } ) {
      manager.onCall( "StartUnit", withReply( { jobRemoved( 7, result ) } ) );
      EXPECT_EQ(
         call( "StartUnit" ), "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " +
                                 jobOf( 7 ) + " result: " + result );
   }
}

TEST_F( AWaitForAJob, goesOnWhileTheResultIsEmpty ) {
   manager.onCall( "StartUnit", withReply( { jobRemoved( 7, "" ), jobRemoved( 7, "done" ) } ) );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, ignoresTheJobsOfOthers ) {
   manager.onCall(
      "StartUnit",
      { jobRemoved( 6, "failed" ), jobRemoved( 0, "failed" ), reply( jobPath( 7 ) ),
        jobRemoved( 8, "failed" ), jobRemoved( 77, "failed" ), jobRemoved( 7, "done" ) } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, knowsItsJobByTheNumberAlone ) {
   manager.onCall(
      "StartUnit",
      withReply( { signal( "JobRemoved", body( "uoss", 7, "/elsewhere", "", "done" ) ) } ) );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, takesTheLastWordOfSeveralInOnePass ) {
   manager.onCall(
      "StartUnit", { jobRemoved( 7, "done" ), jobRemoved( 7, "failed" ), reply( jobPath( 7 ) ) } );
   EXPECT_EQ(
      call( "StartUnit" ),
      "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + jobOf( 7 ) + " result: failed" );
}

TEST_F( AWaitForAJob, acceptsTheSmallestAndTheLargestNumber ) {
   for( const uint32_t id : { 0U, 4294967295U } ) {
      manager.onCall( "StartUnit", { reply( jobPath( id ) ), jobRemoved( id, "done" ) } );
      EXPECT_EQ( call( "StartUnit" ), jobOf( id ) );
   }
}

TEST_F( AWaitForAJob, refusesAReplyThatNamesNoJob ) {
   for( const std::string path :
        { "/", "/org/freedesktop/systemd1/job", "/org/freedesktop/systemd1/job/x",
          "/org/freedesktop/systemd1/job/4294967296", "/org/freedesktop/systemd1/units/a" } ) {
      manager.onCall( "StartUnit", { reply( body( "o", path ) ), jobRemoved( 7, "done" ) } );
      EXPECT_EQ(
         call( "StartUnit" ),
         "Sodrel::SdbusJobException: JobRemovedMonitor::parseJobId, failed to parse job: " + path );
   }
}

TEST_F( AWaitForAJob, isNoneWhereTheReplyNamesAUnit ) {
   manager.onCall( "StartUnit", { reply( body( "o", unitPath( "web.service" ) ) ) } );
   EXPECT_EQ( call( "StartUnit" ), unitPath( "web.service" ) );
}

TEST_F( AWaitForAJob, failsWhereASignalCannotBeReadWhateverTheJobDid ) {
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
      manager.onCall(
         "StartUnit",
         { signal( "JobRemoved", odd ), jobRemoved( 7, "done" ), reply( jobPath( 7 ) ) } );
      EXPECT_EQ( call( "StartUnit" ), waiting + "callback handling failed for " + jobOf( 7 ) );
   }
}

TEST_F( AWaitForAJob, readsASignalThatHoldsMoreThanItNeeds ) {
   manager.onCall(
      "StartUnit",
      withReply( { signal( "JobRemoved", body( "uossu", 7, "/a", "web.service", "done", 1 ) ) } ) );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, hearsNobodyButTheManagerAndItsObject ) {
   const Body failed = body( "uoss", 7, jobOf( 7 ), "web.service", "failed" );
   manager.onCall(
      "StartUnit",
      { byStranger( jobRemoved( 7, "failed" ) ), byStranger( signal( "JobRemoved", {} ) ),
        signal( "/elsewhere", managerInterface, "JobRemoved", failed ),
        signal( managerPath, unitInterface, "JobRemoved", failed ), signal( "JobNew", failed ),
        jobRemoved( 7, "done" ), reply( jobPath( 7 ) ) } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, runsOutOfTimeWhereNobodySpeaksOfTheJob ) {
   manager.onCall( "StartUnit", withReply( { jobRemoved( 8, "done" ) } ) );
   moments.hurryWaits( true );
   EXPECT_EQ( call( "StartUnit" ), waiting + "600.000000 timeout for " + jobOf( 7 ) );
}

TEST_F( AWaitForAJob, wakesUpWhenTheSignalComes ) {
   manager.onCall( "StartUnit", withReply( { hold( "Go" ), jobRemoved( 7, "done" ) } ) );
   const Tessel::Ptr< Sdbus > other = sdbusFactory();
   manager.onCall( "Go", { reply() } );
   // The first pass has found nothing by the second reading.
   moments.atReading( 2, [&] { other->asyncManagerCall( "Go" ); } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, isNotDisturbedByAReplyThatComesAfterTheTimeLimitOfItsCall ) {
   manager.onCall( "StartUnit", { hold( "late" ), reply( jobPath( 6 ) ) } );
   sd_bus_set_method_call_timeout( client->sdbus(), 250'000 );
   EXPECT_EQ(
      call( "StartUnit" ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, sd-bus call StartUnit web.service "
      "replace failed: Connection timed out" );
   sd_bus_set_method_call_timeout( client->sdbus(), 0 );

   manager.onCall(
      "StartUnit", { raise( "late" ), jobRemoved( 6, "failed" ), reply( jobPath( 7 ) ),
                     jobRemoved( 7, "done" ) } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AWaitForAJob, followsAMethodWithOneStringToo ) {
   const auto cancel = [&] {
      return outcomeOf( [&] { return client->managerCallSO( "Mark", "x", false ); } );
   };
   manager.onCall( "Mark", { reply( jobPath( 7 ) ), jobRemoved( 7, "done" ) } );
   EXPECT_EQ( cancel(), jobOf( 7 ) );
   manager.onCall( "Mark", { reply( jobPath( 7 ) ), jobRemoved( 7, "canceled" ) } );
   EXPECT_EQ(
      cancel(), "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + jobOf( 7 ) +
                   " result: canceled" );
}

} // namespace

} // namespace Sodrel::Test
