// Creation and end of a client of the manager.
#include <scripted/ScriptedTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

using TheSdbusFactory = ScriptedTest;
using AnSdbusEntity = ScriptedTest;

TEST_F( TheSdbusFactory, opensTheBusWithoutReportingAReconnectionAndReadsTheSystemState ) {
   script.next( "sd_bus_get_property_string", gives( "degraded" ) );
   const Tessel::Ptr< Sdbus > client = sdbusFactory();
   expectLog( {
      "Sodrel/8 handleInitialized: Initialize sd-bus",
      "Sodrel/8 managerPropertyS: Get SystemState manager property with sd-bus",
      probe( "null" ),
      "sd_bus_open_system( bus )",
      managerRead( "bus1", "SystemState" ),
      "sd_bus_error_free( empty )",
      "free( degraded )",
      "Sodrel/9 handleInitialized: SystemState degraded",
   } );
}

TEST_F( TheSdbusFactory, acceptsAnEmptySystemState ) {
   script.next( "sd_bus_get_property_string", gives( "" ) );
   const Tessel::Ptr< Sdbus > client = sdbusFactory();
   EXPECT_TRUE( takeLog().ends_with( "free(  )\nSodrel/9 handleInitialized: SystemState " ) );
}

TEST_F( TheSdbusFactory, givesTheOnlyUseOfAnInitializedEntity ) {
   const Tessel::Ptr< Sdbus > client = createdSdbus();
   EXPECT_EQ( client->useCount(), 1U );
   EXPECT_TRUE( client->nodeFlag( 0x20000000 ) );
   EXPECT_EQ( livingEntities(), "1 Sodrel::Sdbus " );
}

TEST_F( TheSdbusFactory, createsASeparateEntityWithItsOwnConnectionEachTime ) {
   const Tessel::Ptr< Sdbus > first = createdSdbus();
   const Tessel::Ptr< Sdbus > second = createdSdbus();
   EXPECT_NE( first.get(), second.get() );
   sd_bus* const firstBus = first->sdbus();
   sd_bus* const secondBus = second->sdbus();
   EXPECT_NE( firstBus, secondBus );
   expectLog( { probed( "bus1" ), probed( "bus2" ) } );
   EXPECT_EQ( script.alive(), "bus1 bus2" );
}

TEST_F( TheSdbusFactory, throwsWhenTheBusCannotBeOpened ) {
   script.next( "sd_bus_open_system", fails( ENOENT ) );
   EXPECT_EQ(
      thrownBy( [] { (void)sdbusFactory(); } ),
      "Sodrel::NoSdbusException: "
      "Sdbus::sdbus, failed to initialize sd-bus: No such file or directory" );
   expectLog( {
      "Sodrel/8 handleInitialized: Initialize sd-bus",
      "Sodrel/8 managerPropertyS: Get SystemState manager property with sd-bus",
      probe( "null" ),
      "sd_bus_open_system( bus )",
   } );
   EXPECT_EQ( livingEntities(), "" );
}

TEST_F( TheSdbusFactory, leavesTheConnectionOpenWhenTheSystemStateCannotBeRead ) {
   script.next( "sd_bus_get_property_string", fails( EACCES, "Access denied" ) );
   EXPECT_EQ(
      thrownBy( [] { (void)sdbusFactory(); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::managerPropertyS, manager property SystemState read failed: Access denied" );
   expectLog( {
      "Sodrel/8 handleInitialized: Initialize sd-bus",
      "Sodrel/8 managerPropertyS: Get SystemState manager property with sd-bus",
      probe( "null" ),
      "sd_bus_open_system( bus )",
      managerRead( "bus1", "SystemState" ),
      "sd_bus_error_free( org.freedesktop.DBus.Error.Failed, Access denied )",
   } );
   EXPECT_EQ( livingEntities(), "" );
   expectLeftOpen( "bus1" );
}

TEST_F( AnSdbusEntity, closesItsConnectionWhenTheLastPointerIsDropped ) {
   Tessel::Ptr< Sdbus > client = createdSdbus();
   Tessel::Ptr< Sdbus > other = client;
   client = nullptr;
   expectLog( {} );
   other = nullptr;
   expectLog( {
      "Sodrel/8 handleDeleted: Deinitialize sd-bus",
      "sd_bus_flush_close_unref( bus1 )",
   } );
   EXPECT_EQ( script.alive(), "" );
}

TEST_F( AnSdbusEntity, canBeDeinitializedTwice ) {
   {
      const Tessel::Ptr< Sdbus > client = createdSdbus();
      client->handleDeleted();
      client->handleDeleted();
   }
   expectLog( {
      "Sodrel/8 handleDeleted: Deinitialize sd-bus",
      "sd_bus_flush_close_unref( bus1 )",
      "Sodrel/8 handleDeleted: Deinitialize sd-bus",
      "sd_bus_flush_close_unref( null )",
      "Sodrel/8 handleDeleted: Deinitialize sd-bus",
      "sd_bus_flush_close_unref( null )",
   } );
}

TEST_F( AnSdbusEntity, opensANewConnectionAfterItsDeinitialization ) {
   const Tessel::Ptr< Sdbus > client = createdSdbus();
   client->handleDeleted();
   takeLog();
   EXPECT_NE( client->sdbus(), nullptr );
   expectLog( { probe( "null" ), "sd_bus_open_system( bus )" } );
}

TEST_F( AnSdbusEntity, makesTheSameCallsWhenNothingIsTraced ) {
   Orl::traceLevelsIs( "Sodrel", 0 );
   {
      const Tessel::Ptr< Sdbus > client = sdbusFactory();
      script.next( "probe", fails( ENOTCONN ) );
      client->asyncManagerCall( "Reload" );
   }
   expectLog( {
      probe( "null" ),
      "sd_bus_open_system( bus )",
      managerRead( "bus1", "SystemState" ),
      "sd_bus_error_free( empty )",
      "free( running )",
      probe( "bus1" ),
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
      managerCall( "bus2", "Reload", "''" ),
      "sd_bus_error_free( empty )",
      "sd_bus_message_unref( message1 )",
      "sd_bus_flush_close_unref( bus2 )",
   } );
}

TEST_F( AnSdbusEntity, tracesTheSystemStateAtLevelNineOnly ) {
   Orl::traceLevelsIs( "Sodrel", 1U << 9 );
   { const Tessel::Ptr< Sdbus > client = sdbusFactory(); }
   expectLog( {
      probe( "null" ),
      "sd_bus_open_system( bus )",
      managerRead( "bus1", "SystemState" ),
      "sd_bus_error_free( empty )",
      "free( running )",
      "Sodrel/9 handleInitialized: SystemState running",
      "sd_bus_flush_close_unref( bus1 )",
   } );
}

} // namespace

} // namespace Sodrel::Test
