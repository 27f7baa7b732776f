// The monitor of a job's end.
#include <scripted/MonitorTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

class AJobRemovedMonitor : public MonitorOf< JobRemovedMonitor > {
 protected:
   std::string waitingFor( const Tessel::String& object ) {
      return thrownBy( [&] { EXPECT_TRUE( monitor->wait( object ) ); } );
   }
   // Whether generic access shows these fields in the record.
   void expectRecord( bool callbackFailed, std::uint32_t jobId, const char* result ) {
      const auto record = monitor->dataIs();
      EXPECT_EQ( field< bool >( *record, "callbackFailed" ), callbackFailed );
      EXPECT_EQ( field< std::uint32_t >( *record, "jobId" ), jobId );
      EXPECT_EQ( field< Tessel::String >( *record, "result" ), result );
   }
};

using TheJobRemovedMonitorFactory = MonitorTest;

TEST_F( TheJobRemovedMonitorFactory, registersTheMatchAndTheEndRemovesItBeforeTheRecord ) {
   auto monitor = jobRemovedMonitorFactory( bus );
   expectLog( {
      "SignalMonitor/8 handleInitialized: Initialize JobRemovedMonitor",
      matched( "bus1", managerPath, managerInterface, "JobRemoved" ),
   } );
   auto record = monitor->dataIs();
   EXPECT_EQ( script.slots().at( 0 )->userdata, record.get() );
   EXPECT_EQ( monitor->useCount(), 1U );
   EXPECT_EQ( record->useCount(), 2U );
   record = nullptr;
   monitor = nullptr;
   expectLog( {
      "SignalMonitor/8 handleDeleted: Deinitialize JobRemovedMonitor",
      "sd_bus_slot_unref( slot1 )",
   } );
}

TEST_F( TheJobRemovedMonitorFactory, throwsWhenTheMatchCannotBeRegistered ) {
   script.next( "sd_bus_match_signal", fails( EINVAL ) );
   EXPECT_EQ(
      thrownBy( [this] { (void)jobRemovedMonitorFactory( bus ); } ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::handleInitialized, "
      "failed to register JobRemoved monitor: Invalid argument" );
   expectLog( {
      "SignalMonitor/8 handleInitialized: Initialize JobRemovedMonitor",
      matched( "bus1", managerPath, managerInterface, "JobRemoved" ),
   } );
   EXPECT_EQ( livingEntities(), "" );
}

TEST_F( AJobRemovedMonitor, startsWithADefaultLimitAndADefaultRecord ) {
   EXPECT_EQ(
      field< Tessel::Interval >( *monitor, "syncTimeout" ).nanoseconds(), 600'000'000'000U );
   expectRecord( false, 0, "" );
   EXPECT_TRUE( monitor->nodeFlag( 0x20000000 ) );
   EXPECT_EQ( script.alive(), "bus1 slot1" );
}

TEST_F( AJobRemovedMonitor, ownsItsRecordUntilItIsTakenOut ) {
   auto record = monitor->dataDel();
   EXPECT_EQ( record->useCount(), 1U );
   const auto second = monitor->dataIs();
   EXPECT_NE( second.get(), record.get() );
   EXPECT_EQ( second->useCount(), 2U );
   // The match still writes to the record that was taken out.
   fieldIs( *record, "jobId", std::uint32_t{ 42 } );
   script.dispatch( bus, jobRemoved( 42, "done" ) );
   EXPECT_EQ( field< Tessel::String >( *record, "result" ), "done" );
   expectRecord( false, 0, "" );
   monitor = nullptr;
}

TEST_F( AJobRemovedMonitor, keepsItsRecordAliveForWhoeverHoldsIt ) {
   const auto record = monitor->dataIs();
   monitor = nullptr;
   EXPECT_EQ( record->useCount(), 1U );
   EXPECT_EQ( livingEntities(), "1 Sodrel::JobRemovedMonitor::CallbackData " );
}

TEST_F( AJobRemovedMonitor, returnsWhenTheJobIsDoneOrSkipped ) {
   for( const char* const result : { "done", "skipped" } ) {
      script.next( "sd_bus_process", dispatches( { jobRemoved( 42, result ) } ) );
      EXPECT_EQ( waitingFor( jobPath ), "nothing" );
      expectLog( {
         "SignalMonitor/8 wait: Wait for JobRemoved signal of /org/freedesktop/systemd1/job/42",
         "steady_clock::now()",
         "sd_bus_process( bus1, null )",
         jobRemovedRead,
         "sd_bus_process( bus1, null )",
         "steady_clock::now()",
      } );
   }
}

TEST_F( AJobRemovedMonitor, throwsForAnyOtherResult ) {
   for( const char* const result :
        { "canceled", "timeout", "failed", "dependency", "invalid", "Done", "done ", "x" } ) {
      script.next( "sd_bus_process", dispatches( { jobRemoved( 42, result ) } ) );
      EXPECT_EQ(
         waitingFor( jobPath ), std::string( "Sodrel::SdbusJobException: JobRemovedMonitor::wait, "
                                             "job /org/freedesktop/systemd1/job/42 result: " ) +
                                   result );
   }
}

TEST_F( AJobRemovedMonitor, ignoresTheSignalsOfOtherJobs ) {
   pass( { jobRemoved( 41, "failed" ), jobRemoved( 43, "failed" ) } );
   pass( { jobRemoved( 42, "done" ) } );
   EXPECT_EQ( waitingFor( jobPath ), "nothing" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for JobRemoved signal of /org/freedesktop/systemd1/job/42",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      jobRemovedRead,
      jobRemovedRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
      "sd_bus_wait( bus1, 600000001 )",
      "sd_bus_process( bus1, null )",
      jobRemovedRead,
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( AJobRemovedMonitor, takesAnEmptyResultAsNoneYet ) {
   pass( { jobRemoved( 42, "" ) } );
   pass( { jobRemoved( 42, std::nullopt ) } );
   EXPECT_EQ(
      waitingFor( jobPath ),
      "Sodrel::SdbusSyncException: "
      "JobRemovedMonitor::wait, 600.000000 timeout for /org/freedesktop/systemd1/job/42" );
}

TEST_F( AJobRemovedMonitor, takesAnEmptySignalAsOneOfJobZeroWithoutAResult ) {
   pass( { jobRemoved( 0, "done" ), managerSignal( "JobRemoved", {} ) } );
   EXPECT_EQ(
      waitingFor( "/org/freedesktop/systemd1/job/0" ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, 600.000000 timeout for "
      "/org/freedesktop/systemd1/job/0" );
}

TEST_F( AJobRemovedMonitor, takesTheLastResultOfAPass ) {
   script.next(
      "sd_bus_process", dispatches( { jobRemoved( 42, "failed" ), jobRemoved( 42, "done" ) } ) );
   EXPECT_EQ( waitingFor( jobPath ), "nothing" );
}

TEST_F( AJobRemovedMonitor, doesNotRecordAResultThatCameBeforeTheWait ) {
   script.dispatch( bus, jobRemoved( 42, "done" ) );
   expectRecord( false, 0, "" );
   script.dispatch( bus, jobRemoved( 0, "done" ) );
   expectRecord( false, 0, "done" );
   EXPECT_EQ(
      waitingFor( jobPath ),
      "Sodrel::SdbusSyncException: "
      "JobRemovedMonitor::wait, 600.000000 timeout for /org/freedesktop/systemd1/job/42" );
   expectRecord( false, 42, "" );
}

TEST_F( AJobRemovedMonitor, returnsAtOnceForAUnit ) {
   EXPECT_EQ( waitingFor( fooPath ), "nothing" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for JobRemoved signal of "
      "/org/freedesktop/systemd1/unit/foo_2eservice",
   } );
}

TEST_F( AJobRemovedMonitor, failsForASignalThatCannotBeReadWhateverTheJobDid ) {
   script.next(
      "sd_bus_process",
      dispatches( {
         jobRemoved( 42, "done" ),
         managerSignal( "JobRemoved", join( { u( 42 ), o( jobPath ), s( "foo.service" ) } ) ),
      } ) );
   EXPECT_EQ(
      waitingFor( jobPath ), "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, "
                             "callback handling failed for /org/freedesktop/systemd1/job/42" );
   expectLog( {
      "SignalMonitor/8 wait: Wait for JobRemoved signal of /org/freedesktop/systemd1/job/42",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      jobRemovedRead,
      "sd_bus_message_read( JobRemoved, uoss )",
      "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
      "Failed to parse JobRemoved signal. )",
      "JobRemoved callback gives -6",
   } );
   expectRecord( true, 42, "done" );
}

TEST_F( AJobRemovedMonitor, forgetsAFailedCallbackWithTheNextWait ) {
   script.dispatch( bus, managerSignal( "JobRemoved", s( "" ) ) );
   expectRecord( true, 0, "" );
   script.next( "sd_bus_process", dispatches( { jobRemoved( 42, "done" ) } ) );
   EXPECT_EQ( waitingFor( jobPath ), "nothing" );
}

TEST_F( AJobRemovedMonitor, reportsABusThatFails ) {
   script.next( "sd_bus_process", fails( ECONNRESET ) );
   EXPECT_EQ(
      waitingFor( jobPath ),
      "Sodrel::SdbusSyncException: "
      "JobRemovedMonitor::wait, sd_bus_process failed: Connection reset by peer" );
   script.next( "sd_bus_wait", fails( ENOTCONN ) );
   EXPECT_EQ(
      waitingFor( jobPath ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, sd_bus_wait failed: "
      "Transport endpoint is not connected" );
}

TEST_F( AJobRemovedMonitor, knowsUnitsByTheStartOfTheirPath ) {
   EXPECT_TRUE( monitor->isUnitObject( fooPath ) );
   EXPECT_TRUE( monitor->isUnitObject( "/org/freedesktop/systemd1/unit/" ) );
   EXPECT_FALSE( monitor->isUnitObject( "/org/freedesktop/systemd1/unit" ) );
   EXPECT_FALSE( monitor->isUnitObject( jobPath ) );
   EXPECT_FALSE( monitor->isUnitObject( "" ) );
   expectLog( {} );
}

TEST_F( AJobRemovedMonitor, readsTheNumberOfAJob ) {
   const auto number = [this]( const char* suffix ) {
      return monitor->parseJobId( std::string( "/org/freedesktop/systemd1/job/" ) + suffix );
   };
   EXPECT_EQ( number( "0" ), 0U );
   EXPECT_EQ( number( "12" ), 12U );
   EXPECT_EQ( number( "0012" ), 12U );
   EXPECT_EQ( number( "12x" ), 12U );
   EXPECT_EQ( number( "12/34" ), 12U );
   EXPECT_EQ( number( "12 " ), 12U );
   EXPECT_EQ( number( "4294967295" ), 4294967295U );
   EXPECT_EQ( number( "4294967295x" ), 4294967295U );
   EXPECT_EQ( number( "00000000004294967295" ), 4294967295U );
   expectLog( {} );
}

TEST_F( AJobRemovedMonitor, refusesAPathWithoutTheNumberOfAJob ) {
   for( const char* const suffix : { "", "abc", "-1", "+1", " 1", "x1", "4294967296",
                                     "99999999999999999999", "4294967296x" } ) {
      const std::string path = std::string( "/org/freedesktop/systemd1/job/" ) + suffix;
      const std::string expected =
         "Sodrel::SdbusJobException: JobRemovedMonitor::parseJobId, failed to parse job: " + path;
      EXPECT_EQ( thrownBy( [&] { (void)monitor->parseJobId( path ); } ), expected );
      takeLog();
      EXPECT_EQ( waitingFor( path ), expected );
      expectLog( { "SignalMonitor/8 wait: Wait for JobRemoved signal of " + path } );
   }
   for( const char* const path : { "", "42", "/org/freedesktop/systemd1/job", "/other/42" } ) {
      EXPECT_EQ(
         waitingFor( path ), std::string( "Sodrel::SdbusJobException: "
                                          "JobRemovedMonitor::parseJobId, failed to parse job: " ) +
                                path );
   }
}

TEST_F( AJobRemovedMonitor, resetsOnlyTheFailureBeforeAPathThatItRefuses ) {
   const auto record = monitor->dataIs();
   fieldIs( *record, "callbackFailed", true );
   fieldIs( *record, "jobId", std::uint32_t{ 7 } );
   fieldIs( *record, "result", Tessel::String( "done" ) );
   waitingFor( "/nonsense" );
   expectRecord( false, 7, "done" );
}

TEST_F( AJobRemovedMonitor, releasesTheSlotThatItWasGiven ) {
   sd_bus_slot* other = nullptr;
   sd_bus_match_signal(
      bus, &other, "a.sender", "/a/path", "an.Interface", "Member",
      []( sd_bus_message*, void*, sd_bus_error* ) { return 0; }, nullptr );
   takeLog();
   monitor->slotIs( other );
   expectLog( {} );
   monitor = nullptr;
   expectLog( {
      "SignalMonitor/8 handleDeleted: Deinitialize JobRemovedMonitor",
      "sd_bus_slot_unref( slot2 )",
   } );
   sd_bus_slot_unref( script.slots().at( 0 ).get() );
}

} // namespace

} // namespace Sodrel::Test
