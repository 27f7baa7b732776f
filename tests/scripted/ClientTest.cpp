// The client of the manager beyond its golden sequences: the connection, unusual strings, the
// choice of the monitor, and the operations on replies.
#include <scripted/ScriptedTest.h>

#include <platform/value/VoidPtr.h>

#include <cerrno>
#include <cstring>
#include <sstream>

namespace SodrelTest {

namespace {

class TheClient : public ClientTest {
 protected:
   sd_bus* rawSdbus() {
      Orl::VoidPtr raw = this;
      EXPECT_EQ( Tessel::memberOf( *client, "rawSdbus" ).read( *client, &raw ), 0 );
      return static_cast< sd_bus* >( raw );
   }
   // Returns the functions that were called, without their arguments.
   static std::string calls() {
      std::string all;
      std::istringstream log( takeLog() );
      for( std::string line; std::getline( log, line ); ) {
         const std::size_t end = line.find( '(' );
         all += end == std::string::npos ? "" : line.substr( 0, end ) + " ";
      }
      return all;
   }
};

using TheSdbusFactory = ClientTest;
using TheReplyOperations = ClientTest;

TEST_F( TheSdbusFactory, returnsTheOnlyUseOfAnEntityThatIsInitializedUntilDestroyed ) {
   EXPECT_EQ( client->useCount(), 1U );
   EXPECT_TRUE( client->nodeFlag( 0x20000000 ) );
   bool initialized = true;
   onTrace = [&, entity = client.get()]( const Tessel::TextTrace& ) {
      initialized = entity->nodeFlag( 0x20000000 );
   };
   client = nullptr;
   EXPECT_FALSE( initialized );
}

TEST_F( TheSdbusFactory, createsASeparateEntityWithItsOwnConnectionEachTime ) {
   const Tessel::Ptr< Sdbus > second = createdSdbus();
   EXPECT_NE( second.get(), client.get() );
   EXPECT_NE( second->sdbus(), client->sdbus() );
   EXPECT_EQ( script.alive(), "bus1 bus2" );
}

TEST_F( TheClient, keepsAConnectionWhateverSystemdReplies ) {
   sd_bus* const first = rawSdbus();
   for( const Answer& answer :
        { gives( "running" ), gives( "stopping" ), gives( "" ), Answer{ .result = 1 } } ) {
      script.next( "probe", answer );
      EXPECT_EQ( client->sdbus(), first );
   }
   EXPECT_EQ( rawSdbus(), first );
   EXPECT_EQ( script.alive(), "bus1" );
}

TEST_F( TheClient, holdsTheConnectionThatItRenewed ) {
   script.next( "probe", fails( ECONNRESET ) );
   sd_bus* const second = client->sdbus();
   EXPECT_EQ( rawSdbus(), second );
   EXPECT_EQ( client->sdbus(), second );
   EXPECT_EQ( script.alive(), "bus2" );
}

TEST_F( TheClient, opensAConnectionAgainWithoutReportingAReconnection ) {
   script.next( "probe", fails( ENOTCONN ) );
   for( const int error : { ENOENT, EMFILE } ) {
      script.next( "sd_bus_open_system", fails( error ) );
      EXPECT_EQ(
         thrownBy( [this] { client->sdbus(); } ),
         std::string( "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus: " ) +
            std::strerror( error ) );
      EXPECT_EQ( rawSdbus(), nullptr );
      EXPECT_EQ( script.alive(), "" );
   }
   takeLog();
   EXPECT_NE( client->sdbus(), nullptr );
   EXPECT_EQ(
      takeLog(),
      "sd_bus_get_property_string( null, org.freedesktop.systemd1, /org/freedesktop/systemd1, "
      "org.freedesktop.systemd1.Manager, SystemState, null, value )\n"
      "sd_bus_open_system( bus )" );
}

TEST_F( TheClient, endsWithoutAConnection ) {
   script.next( "probe", fails( ENOTCONN ) );
   script.next( "sd_bus_open_system", fails( ENOENT ) );
   thrownBy( [this] { client->sdbus(); } );
   takeLog();
   client = nullptr;
   EXPECT_EQ(
      takeLog(), "Sodrel/8 handleDeleted: Deinitialize sd-bus\n"
                 "sd_bus_flush_close_unref( null )\n"
                 "slabFree( Sodrel::Sdbus )" );
}

TEST_F( TheClient, canBeDeinitializedTwiceAndThenOpensANewConnection ) {
   client->handleDeleted();
   EXPECT_EQ( rawSdbus(), nullptr );
   client->handleDeleted();
   EXPECT_EQ(
      takeLog(), "Sodrel/8 handleDeleted: Deinitialize sd-bus\n"
                 "sd_bus_flush_close_unref( bus1 )\n"
                 "Sodrel/8 handleDeleted: Deinitialize sd-bus\n"
                 "sd_bus_flush_close_unref( null )" );
   EXPECT_NE( client->sdbus(), nullptr );
   EXPECT_EQ( script.alive(), "bus2" );
}

TEST_F( TheClient, passesEmptyStringsThrough ) {
   client->asyncManagerCallSsO( "", "", "" );
   EXPECT_NE(
      takeLog().find( "org.freedesktop.systemd1.Manager, '', error, reply, ss, '', '' )" ),
      std::string::npos );
   script.next( "sd_bus_get_property_string", fails( EINVAL ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyS( "" ); } ),
      "Sodrel::SdbusCallException: Sdbus::managerPropertyS, manager property  read failed" );
}

TEST_F( TheClient, insertsNamesWithBracesUnchanged ) {
   script.next( "sd_bus_get_property_string", fails( EINVAL, "{1} %s" ) );
   EXPECT_EQ(
      thrownBy( [this] { client->managerPropertyS( "{0} %n" ); } ),
      "Sodrel::SdbusCallException: "
      "Sdbus::managerPropertyS, manager property {0} %n read failed: {1} %s" );
   EXPECT_TRUE( takeLog().starts_with(
      "Sodrel/8 managerPropertyS: Get {0} %n manager property with sd-bus\n" ) );
}

TEST_F( TheClient, treatsANullStringAsEmpty ) {
   script.next( "sd_bus_get_property_string", {} );
   EXPECT_EQ( client->managerPropertyS( "Version" ), "" );
}

TEST_F( TheClient, returnsABooleanThatIsFalse ) {
   script.next( "sd_bus_get_property", replies( b( false ) ) );
   EXPECT_FALSE( client->managerPropertyB( "ConfirmSpawn" ) );
}

TEST_F( TheClient, refusesToWaitForAnyMethodWithoutArgumentsButReload ) {
   for( const std::string method : { "reload", "Reload ", "ReloadUnit", "" } ) {
      EXPECT_EQ(
         thrownBy( [&] { client->managerCall( method, false ); } ),
         "Sodrel::SdbusSyncException: Sdbus::managerCall, method " + method +
            " doesn't support sync operations" );
      EXPECT_EQ( calls(), "sd_bus_get_property_string free " );
   }
}

TEST_F( TheClient, waitsForTheJobOfAnyOtherUnitMethod ) {
   for( const std::string method :
        { "StopUnit", "RestartUnit", "reloadunit", "ReloadUnit ", "ReloadOrTryRestartUnitX" } ) {
      script.next( "probe", gives( "running" ) );
      EXPECT_EQ(
         thrownBy( [&] { client->managerCallSsO( method, "foo.service", "replace", false ); } ),
         "Sodrel::SdbusSyncException: "
         "JobRemovedMonitor::wait, 600.000000 timeout for /org/freedesktop/systemd1/job/42" );
   }
}

TEST_F( TheClient, waitsForTheUnitOfBothWaysToReloadIt ) {
   for( const char* const method : { "ReloadUnit", "ReloadOrRestartUnit" } ) {
      EXPECT_EQ(
         thrownBy( [&] { client->managerCallSsO( method, "foo.service", "replace", false ); } ),
         "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, 600.000000 timeout" );
   }
}

TEST_F( TheReplyOperations, freeTheErrorOfACallAndThrowItsMessageIfTheCallFailed ) {
   const std::string thrown = "Sodrel::SdbusCallException: What the caller did";
   struct {
      Answer answer;
      std::string outcome;
      const char* freed;
   } const rows[] = {
      { { .result = 0 }, "nothing", "empty" },
      { { .result = 7, .errorName = "an.Error", .errorMessage = "words" },
        "nothing",
        "an.Error, words" },
      { { .result = -1 }, thrown, "empty" },
      { { .result = -EIO, .errorName = "an.Error", .errorMessage = "words" },
        thrown + ": words",
        "an.Error, words" },
      { { .result = -EIO, .errorName = "an.Error" }, thrown, "an.Error, null" },
      { { .result = -EIO, .errorName = "an.Error", .errorMessage = "" },
        thrown + ": ",
        "an.Error, ''" },
   };
   for( const auto& row : rows ) {
      sd_bus_error error = {};
      script.errorIs( &error, row.answer );
      EXPECT_EQ(
         thrownBy(
            [&] { client->handleSdbusCall( row.answer.result, &error, "What the caller did" ); } ),
         row.outcome );
      EXPECT_EQ( takeLog(), std::string( "sd_bus_error_free( " ) + row.freed + " )" );
   }
}

TEST_F( TheReplyOperations, treatANullErrorAsOneWithoutAMessage ) {
   EXPECT_EQ(
      thrownBy( [&] { client->handleSdbusCall( -EIO, nullptr, "What the caller did" ); } ),
      "Sodrel::SdbusCallException: What the caller did" );
   EXPECT_EQ( thrownBy( [&] { client->handleSdbusCall( 0, nullptr, "" ); } ), "nothing" );
}

TEST_F( TheReplyOperations, copyAPathBeforeTheyDropTheReply ) {
   const std::string path( 100, 'x' );
   EXPECT_EQ( client->handleSdbusMessageO( script.newReply( o( path ) ), "" ), path.c_str() );
}

TEST_F( TheReplyOperations, treatMissingValuesAsTheEmptyPathAndAsFalse ) {
   EXPECT_EQ( client->handleSdbusMessageO( script.newReply( {} ), "" ), "" );
   EXPECT_EQ( client->handleSdbusMessageO( script.newReply( o( std::nullopt ) ), "" ), "" );
   EXPECT_FALSE( client->handleSdbusMessageB( script.newReply( {} ), "" ) );
   EXPECT_FALSE( client->handleSdbusMessageB( script.newReply( b( false ) ), "" ) );
}

TEST_F( TheReplyOperations, refuseAStringAsAPathAndAsABoolean ) {
   constexpr const char* refused = "Sodrel::SdbusMessageException: Text: No such device or address";
   EXPECT_EQ(
      thrownBy( [&] { client->handleSdbusMessageO( script.newReply( s( "/a" ) ), "Text" ); } ),
      refused );
   EXPECT_EQ(
      thrownBy( [&] { client->handleSdbusMessageB( script.newReply( s( "true" ) ), "Text" ); } ),
      refused );
}

} // namespace

} // namespace SodrelTest
