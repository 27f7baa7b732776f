// The monitors: what they have in common, and how their waits interpret signals.
#include <scripted/Monitors.h>

#include <cerrno>
#include <vector>

namespace SodrelTest {

namespace {

using Passes = std::vector< std::vector< Signal > >;

class MonitorTest : public BusTest {
 protected:
   // Each pass of a wait dispatches the signals of one element.
   void passesAre( const Passes& passes ) {
      for( const auto& signals : passes ) {
         script.next( "sd_bus_process", dispatches( signals ) );
         script.next( "sd_bus_process", {} );
      }
   }
};

class EachMonitor : public MonitorTest, public testing::WithParamInterface< Monitor > {
 protected:
   void TearDown() override {
      monitor = nullptr;
      BusTest::TearDown();
   }

   const std::string name = std::string( "Sodrel::" ) + GetParam().name;
   Tessel::Ptr< SignalMonitor > monitor = GetParam().make( bus );
};

TEST_P( EachMonitor, startsWithOneUseTheDefaultLimitAndANewRecord ) {
   EXPECT_EQ( monitor->useCount(), 1U );
   EXPECT_TRUE( monitor->nodeFlag( 0x20000000 ) );
   EXPECT_EQ( fieldOf( *monitor, "syncTimeout" ), "600000000000" );
   EXPECT_EQ( fieldsOf( *GetParam().dataIs( *monitor ) ), GetParam().newRecord );
}

TEST_P( EachMonitor, passesItsRecordToItsCallback ) {
   const auto record = GetParam().dataIs( *monitor );
   EXPECT_EQ( record->useCount(), 2U );
   EXPECT_EQ( script.slots().at( 0 )->userdata, record.get() );
   EXPECT_EQ( GetParam().dataIs( *monitor ).get(), record.get() );
}

TEST_P( EachMonitor, leavesItsRecordToItsOtherUsers ) {
   auto record = GetParam().dataIs( *monitor );
   monitor = nullptr;
   EXPECT_EQ( record->useCount(), 1U );
   EXPECT_EQ( livingEntities(), "1 " + name + "::CallbackData " );
}

TEST_P( EachMonitor, makesANewRecordWhenItsOwnIsTakenOut ) {
   const auto record = GetParam().dataDel( *monitor );
   EXPECT_EQ( record->useCount(), 1U );
   EXPECT_EQ( GetParam().dataDel( *monitor ).get(), nullptr );
   const auto second = GetParam().dataIs( *monitor );
   EXPECT_NE( second.get(), record.get() );
   EXPECT_EQ( second->useCount(), 2U );
   // The match rule still writes to the record that was taken out.
   script.dispatch( bus, signalOf( GetParam(), u( 1 ) ) );
   EXPECT_TRUE( fieldsOf( *record ).starts_with( "callbackFailed=true " ) );
   EXPECT_EQ( fieldsOf( *second ), GetParam().newRecord );
   monitor = nullptr;
}

TEST_P( EachMonitor, isNotInitializedOnceItsDestructionBegins ) {
   std::string seen;
   const auto* const entity = monitor.get();
   onTrace = [&]( const Tessel::TextTrace& ) {
      seen += entity->nodeFlag( 0x20000000 ) ? "initialized " : "ending ";
   };
   monitor = nullptr;
   EXPECT_EQ( seen, "ending " );
}

TEST_P( EachMonitor, releasesTheSlotThatItWasGiven ) {
   sd_bus_slot* const other = script.newSlot( { {}, bus, "/a", "an.I", "M", nullptr, nullptr } );
   takeLog();
   monitor->slotIs( other );
   EXPECT_EQ( takeLog(), "" );
   monitor = nullptr;
   EXPECT_EQ( script.alive(), "bus1 slot1" );
   sd_bus_slot_unref( script.slots().at( 0 ).get() );
}

TEST_P( EachMonitor, timesOutWithoutASignal ) {
   EXPECT_EQ( GetParam().waiting( *monitor ), GetParam().timeout() );
}

TEST_P( EachMonitor, reportsAnUnreadableSignalOnlyToTheWaitThatReceivesIt ) {
   script.dispatch( bus, signalOf( GetParam(), u( 1 ) ) );
   script.next( "sd_bus_process", dispatches( { signalOf( GetParam(), u( 1 ) ) } ) );
   EXPECT_EQ( GetParam().waiting( *monitor ), GetParam().callbackFailed() );
   EXPECT_EQ( GetParam().waiting( *monitor ), GetParam().timeout() );
}

TEST_P( EachMonitor, reportsAConnectionThatWasClosedUnderIt ) {
   sd_bus_flush_close_unref( bus );
   EXPECT_EQ(
      GetParam().waiting( *monitor ),
      GetParam().waitFailed( "sd_bus_process failed: Connection reset by peer" ) );
   bus->open = true; // for the check at the end
}

INSTANTIATE_TEST_SUITE_P(
   OfTheLibrary, EachMonitor,
   testing::Values( jobRemovedMonitor, daemonReloadingMonitor, unitReloadingMonitor ),
   []( const auto& instance ) { return std::string( instance.param.name ); } );

// Signals and the outcome of a wait for them.
struct Row {
   Passes passes;
   std::string outcome;
   std::string record = "";
};

class TheWait : public MonitorTest {
 protected:
   // For each row, waits with a new monitor that has already received some signals.
   void expect(
      const Monitor& kind, const std::vector< Row >& rows,
      const std::vector< Signal >& before = {} ) {
      for( const Row& row : rows ) {
         SCOPED_TRACE( "row " + std::to_string( &row - rows.data() ) );
         const auto monitor = kind.make( bus );
         for( const Signal& signal : before ) {
            script.dispatch( bus, signal );
         }
         passesAre( row.passes );
         EXPECT_EQ( kind.waiting( *monitor ), row.outcome );
         if( !row.record.empty() ) {
            EXPECT_EQ( fieldsOf( *kind.dataIs( *monitor ) ), row.record );
         }
         script.forgetLeftOver();
      }
   }
};

TEST_F( TheWait, forAJobEndsWithItsResult ) {
   const auto record = []( const std::string& result ) {
      return "callbackFailed=false jobId=42 result=" + result;
   };
   std::vector< Row > rows{
      { { { jobRemoved( 42, "done" ) } }, "true", record( "done" ) },
      { { { jobRemoved( 42, "skipped" ) } }, "true", record( "skipped" ) },
      // Signals of other jobs are ignored.
      { { { jobRemoved( 41, "failed" ), jobRemoved( 43, "failed" ) },
          { jobRemoved( 42, "done" ) } },
        "true" },
      // The last signal of a pass counts.
      { { { jobRemoved( 42, "failed" ), jobRemoved( 42, "done" ) } }, "true" },
      // No result yet.
      { { { jobRemoved( 42, "" ) } }, jobRemovedMonitor.timeout(), record( "" ) },
      { { { jobRemoved( 42, std::nullopt ) } }, jobRemovedMonitor.timeout(), record( "" ) },
      // No result if another signal of the pass cannot be read.
      { { { jobRemoved( 42, "done" ), signalOf( jobRemovedMonitor, u( 42 ) ) } },
        jobRemovedMonitor.callbackFailed(),
        "callbackFailed=true jobId=42 result=done" },
   };
   for( const std::string result :
        { "canceled", "timeout", "failed", "dependency", "invalid", "Done", "done ", "x" } ) {
      rows.push_back( { { { jobRemoved( 42, result ) } },
                        "Sodrel::SdbusJobException: JobRemovedMonitor::wait, "
                        "job /org/freedesktop/systemd1/job/42 result: " +
                           result,
                        record( result ) } );
   }
   expect( jobRemovedMonitor, rows );
   // What came before it is forgotten.
   expect(
      jobRemovedMonitor,
      { { {}, jobRemovedMonitor.timeout(), "callbackFailed=false jobId=42 result=" } },
      { jobRemoved( 0, "done" ), jobRemoved( 42, "done" ) } );
}

TEST_F( TheWait, forTheManagerEndsWithAFinishAndReturnsWhetherItSawAStart ) {
   const Signal start = reloading( true );
   const Signal finish = reloading( false );
   const std::string both = "callbackFailed=false started=true finished=true";
   const std::string timeout = daemonReloadingMonitor.timeout();
   expect(
      daemonReloadingMonitor,
      {
         { { { start }, { finish } }, "true", both },
         { { { finish } }, "false", "callbackFailed=false started=false finished=true" },
         { { { signalOf( daemonReloadingMonitor, {} ) } }, "false" },
         { { { start, start, finish } }, "true" },
         { { { start, finish, start } }, "true", both },
         { { { finish, start }, { finish } }, "true" },
         { { { finish, start, finish } }, "true" },
         { { { finish, start } }, timeout, "callbackFailed=false started=true finished=false" },
         { { { start } }, timeout },
      } );
   // What came before it is forgotten.
   expect(
      daemonReloadingMonitor, { { { { finish } }, "false" }, { {}, timeout } }, { start, finish } );
}

// The signals of a unit that goes through these states.
std::vector< Signal > states( std::initializer_list< const char* > names ) {
   std::vector< Signal > signals;
   for( const char* const name : names ) {
      signals.push_back( unitBecomes( name ) );
   }
   return signals;
}

TEST_F( TheWait, forAUnitEndsWhenItIsActiveAfterAStartOrHasFailed ) {
   const std::string timeout = unitReloadingMonitor.timeout();
   const std::string failed = "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, unit "
                              "/org/freedesktop/systemd1/unit/foo_2eservice failed: Success";
   const auto record = []( bool started, bool finished, bool hasFailed ) {
      const auto shown = []( bool value ) { return value ? "true" : "false"; };
      return std::string( "callbackFailed=false started=" ) + shown( started ) +
             " finished=" + shown( finished ) + " failed=" + shown( hasFailed );
   };
   expect(
      unitReloadingMonitor,
      {
         { { states( { "reloading" } ), states( { "active" } ) },
           "true",
           record( true, true, false ) },
         { { states( { "activating", "active" } ) }, "true" },
         { { states( { "deactivating", "inactive", "activating", "active" } ) }, "true" },
         { { states( { "active" } ) }, timeout, record( false, false, false ) },
         { { states( { "active", "reloading" } ) }, timeout, record( true, false, false ) },
         { { states( { "inactive", "deactivating", "maintenance", "refreshing", "Active", "",
                       "Reloading", "reloading ", "active" } ) },
           timeout,
           record( false, false, false ) },
         { { states( { "reloading" } ), states( { "failed" } ) },
           failed,
           record( true, false, true ) },
         { { states( { "failed" } ) }, failed, record( false, false, true ) },
         // A later state in the same pass replaces it.
         { { states( { "failed", "activating" } ), states( { "active" } ) }, "true" },
         { { states( { "reloading", "failed", "inactive" } ) },
           timeout,
           record( true, false, false ) },
         // It has been active after a start, whatever its current state.
         { { states( { "reloading", "active", "failed" } ) }, "true", record( true, true, true ) },
         { { states( { "reloading", "active", "reloading" } ) },
           "true",
           record( true, true, false ) },
      } );
}

TEST_F( TheWait, forAUnitForgetsWhatCameBeforeIt ) {
   std::vector< Signal > before = states( { "reloading", "active", "failed" } );
   expect( unitReloadingMonitor, { { {}, unitReloadingMonitor.timeout() } }, before );
   before.pop_back();
   expect(
      unitReloadingMonitor, { { { states( { "active" } ) }, unitReloadingMonitor.timeout() } },
      before );
}

TEST_F( TheWait, forAUnitIgnoresTheObjectThatItIsGiven ) {
   const auto monitor = unitReloadingMonitor.make( bus );
   for( const char* const object : { jobPath, "" } ) {
      passesAre( { states( { "reloading" } ), states( { "active" } ) } );
      EXPECT_TRUE( monitor->wait( Tessel::String( object ) ) );
      EXPECT_EQ(
         thrownBy( [&] { monitor->wait( Tessel::String( object ) ); } ),
         unitReloadingMonitor.timeout() );
   }
}

} // namespace

} // namespace SodrelTest
