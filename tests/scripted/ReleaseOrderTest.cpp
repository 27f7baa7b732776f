// The order in which entities end, and in which an unfinished one is taken back.
#include <scripted/MonitorTest.h>

#include <platform/value/TypeName.h>
#include <support/ScriptedMemory.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

class TheReleaseOrder : public MonitorTest {
 protected:
   void SetUp() override {
      onSlabFree = []( const std::type_info& type ) {
         logLine( std::string( "slabFree( " ) + Tessel::typeName( type ).data() + " )" );
      };
   }
   void TearDown() override {
      onSlabFree = nullptr;
      MonitorTest::TearDown();
   }
};

TEST_F( TheReleaseOrder, ofAClientIsTheConnectionThenTheEntity ) {
   createdSdbus() = nullptr;
   expectLog( {
      "Sodrel/8 handleDeleted: Deinitialize sd-bus",
      "sd_bus_flush_close_unref( bus2 )",
      "slabFree( Sodrel::Sdbus )",
   } );
}

TEST_F( TheReleaseOrder, ofAnUnfinishedClientIsTheEntityAlone ) {
   script.next( "sd_bus_open_system", fails( ENOENT ) );
   thrownBy( [] { (void)sdbusFactory(); } );
   expectLog( {
      "Sodrel/8 handleInitialized: Initialize sd-bus",
      "Sodrel/8 managerPropertyS: Get SystemState manager property with sd-bus",
      probe( "null" ),
      "sd_bus_open_system( bus )",
      "slabFree( Sodrel::Sdbus )",
   } );
}

TEST_F( TheReleaseOrder, ofAMonitorIsTheMatchThenTheRecordThenTheEntity ) {
   { const auto monitor = jobRemovedMonitorFactory( bus ); }
   { const auto monitor = daemonReloadingMonitorFactory( bus ); }
   { const auto monitor = unitReloadingMonitorFactory( bus, "/a" ); }
   expectLog( {
      "SignalMonitor/8 handleInitialized: Initialize JobRemovedMonitor",
      matched( "bus1", managerPath, managerInterface, "JobRemoved" ),
      "SignalMonitor/8 handleDeleted: Deinitialize JobRemovedMonitor",
      "sd_bus_slot_unref( slot1 )",
      "slabFree( Sodrel::JobRemovedMonitor::CallbackData )",
      "slabFree( Sodrel::JobRemovedMonitor )",
      "SignalMonitor/8 handleInitialized: Initialize DaemonReloadingMonitor",
      matched( "bus1", managerPath, managerInterface, "Reloading" ),
      "SignalMonitor/8 handleDeleted: Deinitialize DaemonReloadingMonitor",
      "sd_bus_slot_unref( slot2 )",
      "slabFree( Sodrel::DaemonReloadingMonitor::CallbackData )",
      "slabFree( Sodrel::DaemonReloadingMonitor )",
      "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for /a",
      matched( "bus1", "/a", "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
      "SignalMonitor/8 handleDeleted: Deinitialize UnitReloadingMonitor for /a",
      "sd_bus_slot_unref( slot3 )",
      "slabFree( Sodrel::UnitReloadingMonitor::CallbackData )",
      "slabFree( Sodrel::UnitReloadingMonitor )",
   } );
}

TEST_F( TheReleaseOrder, ofAnUnfinishedMonitorIsTheRecordThenTheEntity ) {
   script.next( "sd_bus_match_signal", fails( EINVAL ) );
   thrownBy( [this] { (void)unitReloadingMonitorFactory( bus, "/a" ); } );
   expectLog( {
      "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for /a",
      matched( "bus1", "/a", "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
      "slabFree( Sodrel::UnitReloadingMonitor::CallbackData )",
      "slabFree( Sodrel::UnitReloadingMonitor )",
   } );
}

// Notes whether an entity that traces counts as initialized.
class Watch : public Tessel::TraceSink {
 public:
   // Ends the entity, which traces as the first thing in its hook.
   void endOf( Tessel::Ptr< Tessel::Node > entity ) {
      entity_ = entity.get();
      Tessel::TraceSink* const before = Tessel::traceSinkIs( this );
      entity = nullptr;
      Tessel::traceSinkIs( before );
   }
   std::string seen;

 private:
   void traceIs( const Tessel::TextTrace& ) override {
      seen += entity_->nodeFlag( Tessel::nodeInitialized ) ? "initialized " : "ending ";
   }
   const Tessel::Node* entity_ = nullptr;
};

TEST_F( TheReleaseOrder, beginsWithTheFlagThatSaysInitialized ) {
   Watch watch;
   watch.endOf( createdSdbus() );
   watch.endOf( jobRemovedMonitorFactory( bus ) );
   watch.endOf( daemonReloadingMonitorFactory( bus ) );
   watch.endOf( unitReloadingMonitorFactory( bus, "/a" ) );
   EXPECT_EQ( watch.seen, "ending ending ending ending " );
}

// A monitor that adds nothing to the base.
class BareMonitor : public SignalMonitor {
   TESSEL_ENTITY( BareMonitor )

 public:
   explicit BareMonitor( sd_bus* connection ) : SignalMonitor( connection ) {}
   bool wait( const Orl::Optional< Tessel::String >& ) override { return true; }

 protected:
   ~BareMonitor() override = default;
};

Orl::AllocTrackTypeInfo* BareMonitor::memAllocationTracker_ = nullptr;

Tessel::TypeRef BareMonitor::typeData() const {
   return SignalMonitor::typeData();
}

TEST_F( TheReleaseOrder, ofTheBareBaseLeavesTheSlotAlone ) {
   sd_bus_slot* slot =
      script.newSlot( { {}, bus, "/a", "an.Interface", "Member", nullptr, nullptr } );
   {
      const auto monitor = Tessel::ptrIsImpl< BareMonitor >( bus );
      monitor->slotIs( slot );
   }
   EXPECT_EQ( takeLog().find( "sd_bus_slot_unref" ), std::string::npos );
   EXPECT_EQ( script.alive(), "bus1 slot1" );
   sd_bus_slot_unref( slot );
}

} // namespace

} // namespace Sodrel::Test
