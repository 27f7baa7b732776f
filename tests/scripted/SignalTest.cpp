// How the monitors read signals and the paths of jobs.
#include <scripted/Steps.h>

#include <cerrno>

namespace SodrelTest {

namespace {

class AUnitsSignal : public BusTest {
 protected:
   void TearDown() override {
      monitor = nullptr;
      BusTest::TearDown();
   }

   // Returns what the callback logs for this content of the signal after the interface.
   std::string read( const Content& changed, const char* interface = unitInterface ) {
      takeLog();
      script.dispatch( bus, unitChanged( changed, interface ) );
      return takeLog();
   }
   std::string record() const { return fieldsOf( *monitor->dataIs() ); }

   Tessel::Ptr< UnitReloadingMonitor > monitor =
      Sodrel::unitReloadingMonitorFactory( bus, fooPath );
   const std::string untouched = unitReloadingMonitor.newRecord;
};

TEST_F( AUnitsSignal, isIgnoredForOtherInterfacesAndForNone ) {
   const std::string ignored = "sd_bus_message_read( PropertiesChanged, s )\n"
                               "PropertiesChanged callback returns 0";
   for( const char* const interface :
        { "org.freedesktop.systemd1.Service", "org.freedesktop.systemd1.Unit2", "" } ) {
      EXPECT_EQ( read( properties( { activeState( "failed" ) } ), interface ), ignored );
   }
   script.dispatch( bus, signalOf( unitReloadingMonitor, {} ) );
   EXPECT_EQ( takeLog(), ignored );
   EXPECT_EQ( record(), untouched );
}

TEST_F( AUnitsSignal, isReadForTheActiveStateAmongOtherProperties ) {
   const Content list = variant( "as", texts( { s( "a" ), s( "b" ) } ) );
   EXPECT_EQ(
      read( properties( {
         property( "SubState", variant( "s", s( "failed" ) ) ),
         activeState( "reloading" ),
         property( "After", list ),
         activeState( "active" ),
         property( "ActiveStateX", variant( "s", s( "failed" ) ) ),
      } ) ),
      logOf( changeRead( { "SubState", "ActiveState", "After", "ActiveState", "X" } ) ) );
   EXPECT_EQ( record(), "callbackFailed=false started=true finished=true failed=false" );
}

TEST_F( AUnitsSignal, changesNothingWithoutProperties ) {
   EXPECT_EQ( read( properties( {} ) ), logOf( changeRead( {} ) ) );
   script.dispatch( bus, signalOf( unitReloadingMonitor, s( unitInterface ) ) );
   EXPECT_EQ( takeLog(), logOf( changeRead( {} ) ) );
   EXPECT_EQ( record(), untouched );
}

TEST_F( AUnitsSignal, failsTheCallbackIfItIsOfAnotherType ) {
   struct {
      Content changed;
      const char* error;
   } const rows[] = {
      { s( "x" ), "Failed to enter an array of changed properties." },
      { properties( { u( 1 ) } ), "Failed to parse an entity with changed properties." },
      { properties( { property( "ActiveState", variant( "u", u( 1 ) ) ) } ),
        "Failed to parse value of ActiveState property." },
   };
   for( const auto& row : rows ) {
      EXPECT_TRUE( read( row.changed )
                      .ends_with(
                         std::string( "\nsd_bus_error_set( error, " ) + failedError + ", " +
                         row.error + " )\nPropertiesChanged callback returns -6" ) );
   }
   // What was read before is kept.
   read( properties( { activeState( "reloading" ), u( 1 ) } ) );
   EXPECT_EQ( record(), "callbackFailed=true started=true finished=false failed=false" );
}

TEST_F( AUnitsSignal, hasNoStateIfANameOrAStateIsMissing ) {
   for( const bool hasName : { false, true } ) {
      script.next( "sd_bus_message_read", { .result = 1 } );
      if( hasName ) {
         script.next( "sd_bus_message_read", { .result = 1 } );
      }
      script.next( "sd_bus_message_read", {} );
      for( const int entered : { 1, 1, 0 } ) {
         script.next( "sd_bus_message_enter_container", { .result = entered } );
      }
      EXPECT_EQ(
         read( properties( { activeState( "reloading" ) } ) ),
         logOf( changeRead( { hasName ? "ActiveState" : "" } ) ) );
   }
   EXPECT_EQ( record(), untouched );
}

TEST_F( AUnitsSignal, treatsNullStringsAsEmpty ) {
   read( properties( { property( "ActiveState", variant( "s", s( std::nullopt ) ) ) } ) );
   script.dispatch( bus, signalOf( unitReloadingMonitor, s( std::nullopt ) ) );
   EXPECT_EQ( record(), untouched );
}

using TheFactoryOfUnitMonitors = BusTest;

TEST_F( TheFactoryOfUnitMonitors, hasATwinInTheClass ) {
   const auto monitor = UnitReloadingMonitor::UnitReloadingMonitorIs( bus, "/other" );
   EXPECT_EQ(
      takeLog(), "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for /other\n"
                 "sd_bus_match_signal( bus1, slot, org.freedesktop.systemd1, /other, "
                 "org.freedesktop.DBus.Properties, PropertiesChanged, callback, userdata )" );
   EXPECT_EQ( monitor->useCount(), 1U );
}

TEST_F( TheFactoryOfUnitMonitors, namesNoUnitForAnEmptyPath ) {
   script.next( "sd_bus_match_signal", fails( EINVAL ) );
   EXPECT_EQ(
      thrownBy( [this] { (void)Sodrel::unitReloadingMonitorFactory( bus, "" ); } ),
      "Sodrel::SdbusSyncException: UnitReloadingMonitor::handleInitialized, "
      "failed to register PropertiesChanged monitor for : Invalid argument" );
}

class AJobRemovedMonitor : public BusTest {
 protected:
   void TearDown() override {
      monitor = nullptr;
      BusTest::TearDown();
   }

   Tessel::Ptr< JobRemovedMonitor > monitor = Sodrel::jobRemovedMonitorFactory( bus );
};

TEST_F( AJobRemovedMonitor, treatsAnEmptySignalAsOneOfJobZeroWithoutAResult ) {
   script.dispatch( bus, jobRemoved( 0, "done" ) );
   EXPECT_EQ( fieldsOf( *monitor->dataIs() ), "callbackFailed=false jobId=0 result=done" );
   script.dispatch( bus, signalOf( jobRemovedMonitor, {} ) );
   EXPECT_EQ( fieldsOf( *monitor->dataIs() ), "callbackFailed=false jobId=0 result=" );
}

TEST_F( AJobRemovedMonitor, recognisesUnitsByTheStartOfTheirPath ) {
   EXPECT_TRUE( monitor->isUnitObject( fooPath ) );
   EXPECT_TRUE( monitor->isUnitObject( "/org/freedesktop/systemd1/unit/" ) );
   EXPECT_FALSE( monitor->isUnitObject( "/org/freedesktop/systemd1/unit" ) );
   EXPECT_FALSE( monitor->isUnitObject( jobPath ) );
   EXPECT_FALSE( monitor->isUnitObject( "" ) );
}

TEST_F( AJobRemovedMonitor, readsTheNumberOfAJob ) {
   takeLog();
   for( const char* const number : { "0", "12", "4294967295" } ) {
      for( const char* const before : { "", "0", "00000000000" } ) {
         for( const char* const after : { "", "x", "/34", " " } ) {
            const std::string job =
               std::string( "/org/freedesktop/systemd1/job/" ) + before + number + after;
            EXPECT_EQ( monitor->parseJobId( job ), std::stoul( number ) ) << job;
         }
      }
   }
   EXPECT_EQ( takeLog(), "" );
}

TEST_F( AJobRemovedMonitor, refusesAPathWithoutTheNumberOfAJob ) {
   std::vector< std::string > paths{ "", "42", "/org/freedesktop/systemd1/job", "/other/42" };
   for( const char* const number : { "", "abc", "-1", "+1", " 1", "x1", "4294967296",
                                     "99999999999999999999", "4294967296x" } ) {
      paths.push_back( std::string( "/org/freedesktop/systemd1/job/" ) + number );
   }
   takeLog();
   for( const std::string& path : paths ) {
      EXPECT_EQ(
         thrownBy( [&] { monitor->wait( Tessel::String( path ) ); } ),
         "Sodrel::SdbusJobException: JobRemovedMonitor::parseJobId, failed to parse job: " + path );
      EXPECT_EQ( takeLog(), "SignalMonitor/8 wait: Wait for JobRemoved signal of " + path );
   }
}

TEST_F( AJobRemovedMonitor, resetsOnlyTheFailureBeforeAPathThatItRefuses ) {
   const auto record = monitor->dataIs();
   fieldIs( *record, "callbackFailed", true );
   fieldIs( *record, "jobId", std::uint32_t{ 7 } );
   fieldIs( *record, "result", Tessel::String( "done" ) );
   thrownBy( [&] { monitor->wait( Tessel::String( "/nonsense" ) ); } );
   EXPECT_EQ( fieldsOf( *record ), "callbackFailed=false jobId=7 result=done" );
}

} // namespace

} // namespace SodrelTest
