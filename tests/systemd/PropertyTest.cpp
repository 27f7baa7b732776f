// Creation and property reads on a real systemd.
#include "Box.h"

#include <gmock/gmock.h>

namespace Sodrel::Test {

namespace {

using ::testing::ElementsAre;

TEST_F( AClient, tracesTheSystemStateWhenItIsCreated ) {
   const CollectedTraces traces( "Sodrel" );

   const auto another = sdbusFactory();

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "handleInitialized/8: Initialize sd-bus",
                         "managerPropertyS/8: Get SystemState manager property with sd-bus",
                         "handleInitialized/9: SystemState running" ) );
}

TEST_F( AClient, hasAConnectionOfItsOwn ) {
   const auto another = sdbusFactory();
   const char* name = nullptr;
   const char* otherName = nullptr;
   ASSERT_EQ( sd_bus_get_unique_name( client->sdbus(), &name ), 0 );
   ASSERT_EQ( sd_bus_get_unique_name( another->sdbus(), &otherName ), 0 );

   EXPECT_STRNE( name, otherName );
}

TEST_F( AClient, cannotBeCreatedWhereNoBusListens ) {
   run( "systemctl stop dbus.service dbus.socket 2>&1" );

   EXPECT_EQ(
      thrownBy< NoSdbusException >( [] { (void)sdbusFactory(); } ),
      "Sdbus::sdbus, failed to initialize sd-bus: Connection refused" );
}

TEST_F( AClient, cannotBeCreatedWhereNoBusHasEverBeen ) {
   run( "systemctl stop dbus.service dbus.socket 2>&1 && rm /run/dbus/system_bus_socket" );

   EXPECT_EQ(
      thrownBy< NoSdbusException >( [] { (void)sdbusFactory(); } ),
      "Sdbus::sdbus, failed to initialize sd-bus: No such file or directory" );
}

TEST_F( AClient, readsAStringOfTheManager ) {
   EXPECT_EQ(
      text( client->managerPropertyS( "SystemState" ) ), run( "systemctl is-system-running" ) );
   EXPECT_EQ(
      text( client->managerPropertyS( "Version" ) ),
      run( "systemctl show --value --property=Version" ) );
}

TEST_F( AClient, readsABooleanOfTheManagerAsItIsNow ) {
   EXPECT_TRUE( client->managerPropertyB( "ServiceWatchdogs" ) );

   run( "systemctl service-watchdogs no" );

   EXPECT_FALSE( client->managerPropertyB( "ServiceWatchdogs" ) );
}

TEST_F( AClient, doesNotTakeAStringForABoolean ) {
   EXPECT_EQ(
      thrownBy< SdbusCallException >( [&] { client->managerPropertyB( "SystemState" ); } ),
      "Sdbus::managerPropertyB, manager property SystemState read failed: No such device or "
      "address" );
}

TEST_F( AClient, doesNotTakeANumberForAString ) {
   EXPECT_EQ(
      thrownBy< SdbusCallException >( [&] { client->managerPropertyS( "NNames" ); } ),
      "Sdbus::managerPropertyS, manager property NNames read failed: No such device or address" );
}

TEST_F( AClient, namesAPropertyThatTheManagerDoesNotHave ) {
   EXPECT_EQ(
      thrownBy< SdbusCallException >( [&] { client->managerPropertyS( "Colour" ); } ),
      "Sdbus::managerPropertyS, manager property Colour read failed: Unknown interface "
      "org.freedesktop.systemd1.Manager or property Colour." );
   EXPECT_EQ(
      thrownBy< SdbusCallException >( [&] { client->managerPropertyB( "Colour" ); } ),
      "Sdbus::managerPropertyB, manager property Colour read failed: Unknown interface "
      "org.freedesktop.systemd1.Manager or property Colour." );
}

TEST_F( AClient, readsPropertiesOfAUnit ) {
   EXPECT_EQ( text( client->unitPropertyS( "dbus.service", "ActiveState" ) ), "active" );
   EXPECT_EQ( text( client->unitPropertyS( "dbus.service", "Description" ) ), "System bus" );
}

TEST_F( AClient, readsPropertiesOfAUnitWhoseNameIsNotAPath ) {
   call( "StartUnit", "instance@\\x2dblank\\x20.service" );

   EXPECT_EQ(
      text( client->unitPropertyS( "instance@\\x2dblank\\x20.service", "Description" ) ),
      "Instance \\x2dblank\\x20 of a template" );
}

TEST_F( AClient, namesAUnitThatIsNotLoaded ) {
   EXPECT_EQ(
      thrownBy< SdbusCallException >( [&] { stateOf( "nosuch.service" ); } ),
      "Sdbus::asyncManagerCallSO, sd-bus call GetUnit nosuch.service failed: Unit nosuch.service "
      "not loaded." );
}

TEST_F( AClient, doesNotReadWhatOnlyServicesHave ) {
   EXPECT_EQ(
      thrownBy< SdbusCallException >( [&] { client->unitPropertyS( "dbus.service", "Type" ); } ),
      "Sdbus::unitPropertyS, read failed for property Type of dbus.service: Unknown interface "
      "org.freedesktop.systemd1.Unit or property Type." );
}

TEST_F( AClient, tracesThePropertyBeforeTheUnit ) {
   const CollectedTraces traces( "Sodrel" );

   stateOf( "dbus.service" );

   EXPECT_THAT(
      traces.lines(), ElementsAre(
                         "unitPropertyS/8: Get ActiveState property of dbus.service with sd-bus",
                         "asyncManagerCallSO/8: " ) );
}

} // namespace

} // namespace Sodrel::Test
