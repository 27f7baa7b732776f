// Reading properties of the manager and of units.
#include <scripted/ScriptedTest.h>
#include <scripted/Signals.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

class PropertyReads : public ClientTest {
 protected:
   static std::string booleanRead( const char* bus, const char* property ) {
      return std::string( "sd_bus_get_property( " ) + bus +
             ", org.freedesktop.systemd1, /org/freedesktop/systemd1, "
             "org.freedesktop.systemd1.Manager, " +
             property + ", error, reply, b )";
   }
   static std::string unitRead( const char* bus, const char* path, const char* property ) {
      return std::string( "sd_bus_get_property_string( " ) + bus + ", org.freedesktop.systemd1, " +
             path + ", org.freedesktop.systemd1.Unit, " + property + ", error, value )";
   }
};

TEST_F( PropertyReads, giveAStringOfTheManager ) {
   script.next( "sd_bus_get_property_string", gives( "degraded" ) );
   EXPECT_EQ( client->managerPropertyS( "SystemState" ), "degraded" );
   expectLog( {
      "Sodrel/8 managerPropertyS: Get SystemState manager property with sd-bus",
      probed( "bus1" ),
      managerRead( "bus1", "SystemState" ),
      "sd_bus_error_free( empty )",
      "free( degraded )",
   } );
}

TEST_F( PropertyReads, takeANullStringAsTheEmptyString ) {
   script.next( "sd_bus_get_property_string", {} );
   EXPECT_EQ( client->managerPropertyS( "Version" ), "" );
}

TEST_F( PropertyReads, failForAStringThatTheManagerDoesNotHave ) {
   script.next( "sd_bus_get_property_string", fails( EINVAL, "Unknown property 'Nope'" ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyS( "Nope" ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::managerPropertyS, manager property Nope read failed: Unknown property 'Nope'" );
   expectLog( {
      "Sodrel/8 managerPropertyS: Get Nope manager property with sd-bus",
      probed( "bus1" ),
      managerRead( "bus1", "Nope" ),
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, Unknown property 'Nope' )",
   } );
}

TEST_F( PropertyReads, failWithoutACauseWhenSdbusGivesNone ) {
   script.next( "sd_bus_get_property_string", fails( EINVAL ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyS( "" ); } ),
      "Sodrel::SdbusCallException: Sdbus::managerPropertyS, manager property  read failed" );
   expectLog( {
      "Sodrel/8 managerPropertyS: Get  manager property with sd-bus",
      probed( "bus1" ),
      managerRead( "bus1", "''" ),
      "sd_bus_error_free( empty )",
   } );
}

TEST_F( PropertyReads, insertNamesWithBracesAsTheyAre ) {
   script.next( "sd_bus_get_property_string", fails( EINVAL, "{1} %s" ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyS( "{0} %n" ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::managerPropertyS, manager property {0} %n read failed: {1} %s" );
   EXPECT_TRUE( takeLog().starts_with(
      "Sodrel/8 managerPropertyS: Get {0} %n manager property with sd-bus\n" ) );
}

TEST_F( PropertyReads, giveABooleanOfTheManager ) {
   EXPECT_TRUE( client->managerPropertyB( "ConfirmSpawn" ) );
   expectLog( {
      "Sodrel/8 managerPropertyB: Get ConfirmSpawn manager property with sd-bus",
      probed( "bus1" ),
      booleanRead( "bus1", "ConfirmSpawn" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, b )",
      "sd_bus_message_unref( message1 )",
   } );
   script.next( "sd_bus_get_property", replies( b( false ) ) );
   EXPECT_FALSE( client->managerPropertyB( "ConfirmSpawn" ) );
}

TEST_F( PropertyReads, failForABooleanThatIsAString ) {
   script.next(
      "sd_bus_get_property", { .result = -ENXIO,
                               .errorName = "System.Error.ENXIO",
                               .errorMessage = "No such device or address" } );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyB( "Version" ); } ),
      "Sodrel::SdbusCallException: Sdbus::managerPropertyB, manager property Version read failed: "
      "No such device or address" );
   expectLog( {
      "Sodrel/8 managerPropertyB: Get Version manager property with sd-bus",
      probed( "bus1" ),
      booleanRead( "bus1", "Version" ),
      "sd_bus_error_free( System.Error.ENXIO, No such device or address )",
   } );
}

TEST_F( PropertyReads, failWhenTheReplyHoldsNoBoolean ) {
   script.next( "sd_bus_get_property", replies( s( "true" ) ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyB( "ConfirmSpawn" ); } ),
      "Sodrel::SdbusMessageException: "
      "Sdbus::managerPropertyB, message handling failed for property ConfirmSpawn: "
      "No such device or address" );
   expectLog( {
      "Sodrel/8 managerPropertyB: Get ConfirmSpawn manager property with sd-bus",
      probed( "bus1" ),
      booleanRead( "bus1", "ConfirmSpawn" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, b )",
      "sd_bus_message_unref( message1 )",
   } );
}

TEST_F( PropertyReads, giveAStringOfAUnitAndTraceThePropertyBeforeTheUnit ) {
   script.next( "sd_bus_get_property_string", gives( "active" ) );
   EXPECT_EQ( client->unitPropertyS( "foo.service", "ActiveState" ), "active" );
   expectLog( {
      "Sodrel/8 unitPropertyS: Get ActiveState property of foo.service with sd-bus",
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "GetUnit", "s, foo.service" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
      probed( "bus1" ),
      unitRead( "bus1", fooPath, "ActiveState" ),
      "sd_bus_error_free( empty )",
      "free( active )",
   } );
}

TEST_F( PropertyReads, failForAnUnknownUnitBeforeAnyPropertyIsRead ) {
   script.next( "sd_bus_call_method", fails( ENOENT, "Unit nope.service not loaded." ) );
   EXPECT_EQ(
      thrownBy( [this] { client->unitPropertyS( "nope.service", "ActiveState" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit nope.service "
      "failed: Unit nope.service not loaded." );
   expectLog( {
      "Sodrel/8 unitPropertyS: Get ActiveState property of nope.service with sd-bus",
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "GetUnit", "s, nope.service" ),
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, Unit nope.service not loaded. )",
   } );
}

TEST_F( PropertyReads, nameTheUnitAndNotItsPathWhenItsPropertyCannotBeRead ) {
   script.next( "sd_bus_get_property_string", fails( EINVAL, "Unknown property" ) );
   EXPECT_EQ(
      thrownBy( [this] { client->unitPropertyS( "foo.service", "Nope" ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::unitPropertyS, read failed for property Nope of foo.service: Unknown property" );
}

TEST_F( PropertyReads, readAUnitOnTheConnectionThatItsOwnProbeLeaves ) {
   script.next( "probe", gives( "running" ) );
   script.next( "probe", fails( ENOTCONN ) );
   EXPECT_EQ( client->unitPropertyS( "foo.service", "ActiveState" ), "running" );
   expectLog( {
      "Sodrel/8 unitPropertyS: Get ActiveState property of foo.service with sd-bus",
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "GetUnit", "s, foo.service" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
      probe( "bus1" ),
      "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: 107",
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
      unitRead( "bus2", fooPath, "ActiveState" ),
      "sd_bus_error_free( empty )",
      "free( running )",
   } );
}

} // namespace

} // namespace Sodrel::Test
