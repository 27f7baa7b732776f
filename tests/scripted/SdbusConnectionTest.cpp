// The connection of a client: probed before every use, and renewed when systemd does not answer.
#include <scripted/ScriptedTest.h>

#include <platform/value/VoidPtr.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

class TheConnection : public ClientTest {
 protected:
   Orl::VoidPtr rawSdbus() {
      Orl::VoidPtr raw = this;
      EXPECT_EQ( Tessel::memberOf( *client, "rawSdbus" ).read( *client, &raw ), 0 );
      return raw;
   }
};

TEST_F( TheConnection, isProbedAndKeptOnEveryUse ) {
   sd_bus* const first = client->sdbus();
   EXPECT_EQ( client->sdbus(), first );
   EXPECT_EQ( rawSdbus(), first );
   expectLog( { probed( "bus1" ), probed( "bus1" ) } );
}

TEST_F( TheConnection, countsAsAliveWhateverTheSystemStateIs ) {
   sd_bus* const first = client->sdbus();
   takeLog();
   script.next( "probe", gives( "stopping" ) );
   EXPECT_EQ( client->sdbus(), first );
   script.next( "probe", gives( "" ) );
   EXPECT_EQ( client->sdbus(), first );
   script.next( "probe", { .result = 1 } );
   EXPECT_EQ( client->sdbus(), first );
   expectLog( {
      probe( "bus1" ),
      "free( stopping )",
      probe( "bus1" ),
      "free(  )",
      probe( "bus1" ),
   } );
}

TEST_F( TheConnection, isClosedAndReplacedWhenTheProbeFails ) {
   sd_bus* const first = client->sdbus();
   takeLog();
   script.next( "probe", fails( ECONNRESET ) );
   sd_bus* const second = client->sdbus();
   EXPECT_NE( second, first );
   EXPECT_EQ( rawSdbus(), second );
   expectLog( {
      probe( "bus1" ),
      "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: 104",
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
   } );
   EXPECT_EQ( client->sdbus(), second );
   expectLog( { probed( "bus2" ) } );
}

TEST_F( TheConnection, isReplacedWhateverTheErrorIs ) {
   for( const int error : { EACCES, EINVAL, ETIMEDOUT, ENXIO, 4095 } ) {
      const std::string old = script.alive();
      script.next( "probe", fails( error ) );
      client->sdbus();
      expectLog( {
         probe( old.c_str() ),
         "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: " + std::to_string( error ),
         "sd_bus_flush_close_unref( " + old + " )",
         "sd_bus_open_system( bus )",
      } );
      EXPECT_NE( script.alive(), old );
   }
}

TEST_F( TheConnection, servesTheOperationThatFoundItExpired ) {
   script.next( "probe", fails( ENOTCONN ) );
   script.next( "sd_bus_get_property_string", gives( "252" ) );
   EXPECT_EQ( client->managerPropertyS( "Version" ), "252" );
   expectLog( {
      "Sodrel/8 managerPropertyS: Get Version manager property with sd-bus",
      probe( "bus1" ),
      "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: 107",
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
      managerRead( "bus2", "Version" ),
      "sd_bus_error_free( empty )",
      "free( 252 )",
   } );
}

TEST_F( TheConnection, isGoneWhenItCannotBeReplacedAndOpenedAgainWithoutReportingAReconnection ) {
   script.next( "probe", fails( ENOTCONN ) );
   script.next( "sd_bus_open_system", fails( ECONNREFUSED ) );
   EXPECT_EQ(
      thrownBy( [this] { client->sdbus(); } ),
      "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus: Connection refused" );
   expectLog( {
      probe( "bus1" ),
      "Sodrel/5 sdbus: Reconnect sd-bus, older connection expired: 107",
      "sd_bus_flush_close_unref( bus1 )",
      "sd_bus_open_system( bus )",
   } );
   EXPECT_EQ( rawSdbus(), nullptr );
   EXPECT_EQ( script.alive(), "" );

   EXPECT_NE( client->sdbus(), nullptr );
   expectLog( { probe( "null" ), "sd_bus_open_system( bus )" } );
}

TEST_F( TheConnection, staysMissingAsLongAsItCannotBeOpened ) {
   script.next( "probe", fails( ENOTCONN ) );
   script.next( "sd_bus_open_system", fails( ENOENT ) );
   script.next( "sd_bus_open_system", fails( EMFILE ) );
   thrownBy( [this] { client->sdbus(); } );
   takeLog();
   EXPECT_EQ(
      thrownBy( [this] { client->sdbus(); } ),
      "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus: Too many open files" );
   expectLog( { probe( "null" ), "sd_bus_open_system( bus )" } );
   client = nullptr;
   expectLog( {
      "Sodrel/8 handleDeleted: Deinitialize sd-bus",
      "sd_bus_flush_close_unref( null )",
   } );
}

TEST_F( TheConnection, isNotRenewedByAFailedRead ) {
   sd_bus* const first = client->sdbus();
   script.next( "sd_bus_get_property_string", fails( ENOTCONN ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyS( "Version" ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::managerPropertyS, manager property Version read failed" );
   EXPECT_EQ( client->sdbus(), first );
}

} // namespace

} // namespace Sodrel::Test
