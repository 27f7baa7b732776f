// The traces of each kind of operation on a real systemd, in their order.
#include "Box.h"

#include <gmock/gmock.h>

namespace SodrelTest {

namespace {

using ::testing::ElementsAre;

class ATrace : public AClient {
 protected:
   CollectedTraces traces{ { "Sodrel", "SignalMonitor" } };
};

TEST_F( ATrace, ofACreationContainsTheSystemState ) {
   const auto another = sdbusFactory();

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "handleInitialized/8: Initialize sd-bus",
                         "managerPropertyS/8: Get SystemState manager property with sd-bus",
                         "handleInitialized/9: SystemState running" ) );
}

TEST_F( ATrace, ofAPropertyOfAUnitComesBeforeTheUnit ) {
   stateOf( "dbus.service" );

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "unitPropertyS/8: Get ActiveState property of dbus.service with sd-bus",
                         "asyncManagerCallSO/8: " ) );
}

TEST_F( ATrace, ofAJobLeadsFromItsCallToItsWait ) {
   const std::string job = call( "StartUnit", "oneshot-remains.service" );

   EXPECT_THAT(
      traces.lines(),
      ElementsAre(
         "managerCallSsO/8: Call sd-bus systemd manager StartUnit oneshot-remains.service replace, "
         "async=false",
         "handleInitialized/8: Initialize JobRemovedMonitor",
         "asyncManagerCallSsO/8: ", "wait/8: Wait for JobRemoved signal of " + job,
         "handleDeleted/8: Deinitialize JobRemovedMonitor" ) );
}

TEST_F( ATrace, ofAUnitReloadLeadsFromTheLookUpOfTheUnitToItsWait ) {
   const Observer observer;
   call( "StartUnit", "reload-succeeds.service" );
   traces.clear();

   call( "ReloadUnit", "reload-succeeds.service" );

   EXPECT_THAT(
      traces.lines(),
      ElementsAre(
         "managerCallSsO/8: Call sd-bus systemd manager ReloadUnit reload-succeeds.service "
         "replace, async=false",
         "asyncManagerCallSO/8: ",
         "handleInitialized/8: Initialize UnitReloadingMonitor for "
         "/org/freedesktop/systemd1/unit/reload_2dsucceeds_2eservice",
         "asyncManagerCallSsO/8: ", "wait/8: Wait for PropertiesChanged signal",
         "handleDeleted/8: Deinitialize UnitReloadingMonitor for "
         "/org/freedesktop/systemd1/unit/reload_2dsucceeds_2eservice" ) );
}

TEST_F( ATrace, ofADaemonReloadLeadsFromItsCallToItsWait ) {
   const Observer observer;

   client->managerCall( "Reload", false );

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "managerCall/8: Call sd-bus systemd manager Reload, async=false",
                         "handleInitialized/8: Initialize DaemonReloadingMonitor",
                         "asyncManagerCall/8: ", "wait/8: Wait for Reloading signal",
                         "handleDeleted/8: Deinitialize DaemonReloadingMonitor" ) );
}

} // namespace

} // namespace SodrelTest
