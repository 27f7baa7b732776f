// Creation and property reads on a real systemd.
#include "Box.h"

namespace SodrelTest {

namespace {

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
      thrownBy( [] { (void)sdbusFactory(); } ),
      "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus: Connection refused" );
}

TEST_F( AClient, cannotBeCreatedWhereNoBusHasEverBeen ) {
   run( "systemctl stop dbus.service dbus.socket 2>&1 && rm /run/dbus/system_bus_socket" );

   EXPECT_EQ(
      thrownBy( [] { (void)sdbusFactory(); } ), "Sodrel::NoSdbusException: Sdbus::sdbus, failed to "
                                                "initialize sd-bus: No such file or directory" );
}

TEST_F( AClient, readsAStringOfTheManager ) {
   EXPECT_EQ(
      text( client->managerPropertyS( "SystemState" ) ), run( "systemctl is-system-running" ) );
   EXPECT_EQ( text( client->managerPropertyS( "Version" ) ), shown( "Version", "" ) );
}

TEST_F( AClient, readsTheCurrentValueOfABooleanOfTheManager ) {
   EXPECT_TRUE( client->managerPropertyB( "ServiceWatchdogs" ) );

   run( "systemctl service-watchdogs no" );

   EXPECT_FALSE( client->managerPropertyB( "ServiceWatchdogs" ) );
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

// systemd unloads an inactive unit that nothing refers to, so this is how "inactive" shows.
TEST_F( AClient, cannotReadAUnitThatHasBeenStopped ) {
   call( "StartUnit", "simple-without-reload.service" );
   EXPECT_EQ( stateOf( "simple-without-reload.service" ), "active" );

   call( "StopUnit", "simple-without-reload.service" );

   EXPECT_EQ(
      thrownBy( [&] { stateOf( "simple-without-reload.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit "
      "simple-without-reload.service failed: Unit simple-without-reload.service not loaded." );
}

struct FailingRead {
   const char* name;
   void ( *read )( Sdbus& client );
   const char* report;
};

// A property that cannot be read.
class AProperty : public AClient, public ::testing::WithParamInterface< FailingRead > {};

TEST_P( AProperty, isNamedWhenItCannotBeRead ) {
   EXPECT_EQ(
      thrownBy( [&] { GetParam().read( *client ); } ),
      std::string( "Sodrel::SdbusCallException: Sdbus::" ) + GetParam().report );
}

INSTANTIATE_TEST_SUITE_P(
   For, AProperty,
   ::testing::Values(
      FailingRead{ "aStringIsNoBoolean",
                   []( Sdbus& client ) { client.managerPropertyB( "SystemState" ); },
                   "managerPropertyB, manager property SystemState read failed: No such device or "
                   "address" },
      FailingRead{ "aNumberIsNoString",
                   []( Sdbus& client ) { client.managerPropertyS( "NNames" ); },
                   "managerPropertyS, manager property NNames read failed: No such device or "
                   "address" },
      FailingRead{ "theManagerHasNoSuchString",
                   []( Sdbus& client ) { client.managerPropertyS( "Colour" ); },
                   "managerPropertyS, manager property Colour read failed: Unknown interface "
                   "org.freedesktop.systemd1.Manager or property Colour." },
      FailingRead{ "theManagerHasNoSuchBoolean",
                   []( Sdbus& client ) { client.managerPropertyB( "Colour" ); },
                   "managerPropertyB, manager property Colour read failed: Unknown interface "
                   "org.freedesktop.systemd1.Manager or property Colour." },
      FailingRead{ "theUnitIsNotLoaded",
                   []( Sdbus& client ) { client.unitPropertyS( "nosuch.service", "ActiveState" ); },
                   "asyncManagerCallSO, sd-bus call GetUnit nosuch.service failed: Unit "
                   "nosuch.service not loaded." },
      FailingRead{ "onlyServicesHaveIt",
                   []( Sdbus& client ) { client.unitPropertyS( "dbus.service", "Type" ); },
                   "unitPropertyS, read failed for property Type of dbus.service: Unknown "
                   "interface org.freedesktop.systemd1.Unit or property Type." } ),
   []( const auto& test ) { return test.param.name; } );

} // namespace

} // namespace SodrelTest
