// Manager calls that return with their reply.
#include <scripted/ScriptedTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

using AsyncManagerCalls = ClientTest;

TEST_F( AsyncManagerCalls, sendAMethodWithoutArgumentsAndDropTheReplyUnread ) {
   client->asyncManagerCall( "Reload" );
   expectLog( {
      "Sodrel/8 asyncManagerCall: ",
      probed( "bus1" ),
      managerCall( "bus1", "Reload", "''" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_unref( message1 )",
   } );
}

TEST_F( AsyncManagerCalls, sendAMethodWithOneStringAndGiveThePathOfTheReply ) {
   EXPECT_EQ(
      client->asyncManagerCallSO( "GetUnit", "foo.service" ),
      "/org/freedesktop/systemd1/unit/foo_2eservice" );
   expectLog( {
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "GetUnit", "s, foo.service" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
   } );
}

TEST_F( AsyncManagerCalls, sendAMethodWithTwoStringsInTheirOrderAndGiveThePathOfTheReply ) {
   EXPECT_EQ(
      client->asyncManagerCallSsO( "ReloadUnit", "foo.service", "replace" ),
      "/org/freedesktop/systemd1/job/42" );
   expectLog( {
      "Sodrel/8 asyncManagerCallSsO: ",
      probed( "bus1" ),
      managerCall( "bus1", "ReloadUnit", "ss, foo.service, replace" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
   } );
}

TEST_F( AsyncManagerCalls, passEmptyStringsThrough ) {
   client->asyncManagerCallSsO( "", "", "" );
   expectLog( {
      "Sodrel/8 asyncManagerCallSsO: ",
      probed( "bus1" ),
      managerCall( "bus1", "''", "ss, '', ''" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
   } );
}

TEST_F( AsyncManagerCalls, throwWhenTheMethodFails ) {
   script.next( "sd_bus_call_method", fails( EACCES, "Access denied" ) );
   EXPECT_EQ(
      thrownBy( [this] { client->asyncManagerCall( "Reload" ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::asyncManagerCall, sd-bus call Reload failed: Access denied" );
   expectLog( {
      "Sodrel/8 asyncManagerCall: ",
      probed( "bus1" ),
      managerCall( "bus1", "Reload", "''" ),
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, Access denied )",
   } );
}

TEST_F( AsyncManagerCalls, nameTheMethodAndItsStringsWhenTheMethodFails ) {
   script.next( "sd_bus_call_method", fails( ENOENT, "Unit nope.service not loaded." ) );
   EXPECT_EQ(
      thrownBy( [this] { client->asyncManagerCallSO( "GetUnit", "nope.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit nope.service "
      "failed: Unit nope.service not loaded." );
   script.next( "sd_bus_call_method", fails( ENOENT ) );
   EXPECT_EQ(
      thrownBy( [this] { client->asyncManagerCallSsO( "StartUnit", "nope.service", "fail" ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::asyncManagerCallSsO, sd-bus call StartUnit nope.service fail failed" );
}

TEST_F( AsyncManagerCalls, throwWhenTheReplyHoldsNoPath ) {
   script.next( "sd_bus_call_method", replies( u( 42 ) ) );
   EXPECT_EQ(
      thrownBy( [this] { client->asyncManagerCallSO( "GetUnit", "foo.service" ); } ),
      "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSO, message read failed when calling "
      "GetUnit foo.service: No such device or address" );
   expectLog( {
      "Sodrel/8 asyncManagerCallSO: ",
      probed( "bus1" ),
      managerCall( "bus1", "GetUnit", "s, foo.service" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_read( message1, o )",
      "sd_bus_message_unref( message1 )",
   } );
   script.next( "sd_bus_call_method", replies( s( "/a/path" ) ) );
   EXPECT_EQ(
      thrownBy( [this] { client->asyncManagerCallSsO( "StartUnit", "foo.service", "fail" ); } ),
      "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSsO, message read failed when calling "
      "StartUnit foo.service fail: No such device or address" );
}

TEST_F( AsyncManagerCalls, sendNothingWithoutAConnection ) {
   script.next( "probe", fails( ENOTCONN ) );
   script.next( "sd_bus_open_system", fails( ENOENT ) );
   EXPECT_EQ(
      thrownBy( [this] { client->asyncManagerCall( "Reload" ); } ),
      "Sodrel::NoSdbusException: "
      "Sdbus::sdbus, failed to initialize sd-bus: No such file or directory" );
   expectLog( {
      "Sodrel/8 asyncManagerCall: ",
      probe( "bus1" ),
      "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: 107",
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
   } );
}

} // namespace

} // namespace Sodrel::Test
