// A user's manager instead of the system's, selected by the bus address.
#include "Box.h"

#include <cstdlib>
#include <optional>

namespace SodrelTest {

namespace {

constexpr const char* address = "DBUS_SYSTEM_BUS_ADDRESS";

// A program of a user whose manager is running.
class AUsersProgram : public ::testing::Test {
 protected:
   void SetUp() override {
      // Copies, because the user may have no access to the originals.
      run( "cp -r " USER_UNITS " /run/user-units && systemctl start user-manager.service" );
      setenv( address, "unix:path=/run/user/bus", 1 );
      withoutRights.emplace();
   }

   // Differs between managers.
   static std::string groupOf( Sdbus& client ) {
      return text( client.managerPropertyS( "ControlGroup" ) );
   }
   static std::string call( Sdbus& client, const char* method, const char* unit ) {
      return thrownBy( [&] { client.managerCallSsO( method, unit, "replace", false ); } );
   }

   std::optional< WithoutRights > withoutRights;
   const std::string systemsGroup = shown( "ControlGroup", "" );
   const std::string usersGroup = "/system.slice/user-manager.service";
};

TEST_F( AUsersProgram, drivesTheManagerOfTheUser ) {
   const auto client = sdbusFactory();
   EXPECT_EQ( groupOf( *client ), usersGroup );
   EXPECT_EQ( call( *client, "StartUnit", "hello.service" ), "nothing" );
   EXPECT_EQ( text( client->unitPropertyS( "hello.service", "ActiveState" ) ), "active" );
   EXPECT_EQ( thrownBy( [&] { client->managerCall( "Subscribe", true ); } ), "nothing" );
   EXPECT_EQ( thrownBy( [&] { client->managerCall( "Reload", false ); } ), "nothing" );
   EXPECT_EQ( call( *client, "ReloadUnit", "hello.service" ), "nothing" );
   EXPECT_EQ( call( *client, "StopUnit", "hello.service" ), "nothing" );
}

TEST_F( AUsersProgram, thatChangesTheAddressDrivesTheSystemsManagerAfterARenewal ) {
   const auto client = sdbusFactory();
   unsetenv( address );
   EXPECT_EQ( groupOf( *client ), usersGroup );

   sd_bus_close( client->sdbus() );

   EXPECT_EQ( groupOf( *client ), systemsGroup );
}

} // namespace

} // namespace SodrelTest
