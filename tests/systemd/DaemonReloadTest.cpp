// Subscriptions and reloads of the manager's configuration on a real systemd.
#include "Box.h"

#include <filesystem>
#include <fstream>

namespace SodrelTest {

namespace {

// The folder of the box's built-in units.
std::filesystem::path unitFolder( Sdbus& client ) {
   return std::filesystem::path( text( client.unitPropertyS( "default.target", "FragmentPath" ) ) )
      .parent_path();
}

void write( const std::filesystem::path& path, const std::string& contents ) {
   std::ofstream( path ) << contents;
}

constexpr const char* expired =
   "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, 0.050000 timeout";

// The outcome of a short wait when no client has subscribed.
std::string unseen() {
   return busHasSubscribed() ? "nothing" : expired;
}

class ASubscription : public AClient {};

TEST_F( ASubscription, isRefusedTheSecondTime ) {
   client->managerCall( "Subscribe", true );

   EXPECT_EQ(
      thrownBy( [&] { client->managerCall( "Subscribe", true ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Subscribe failed: Client "
      "is already subscribed." );
}

TEST_F( ASubscription, isLostWhenTheConnectionIsRenewed ) {
   client->managerCall( "Subscribe", true );

   sd_bus_close( client->sdbus() );

   client->managerCall( "Subscribe", true );
}

TEST_F( ASubscription, isLostWhenTheBusIsRestarted ) {
   client->managerCall( "Subscribe", true );

   run( "systemctl restart dbus.service" );

   const auto monitor = daemonReloadingMonitorFactory( client->sdbus() );
   client->managerCall( "Reload", true );
   EXPECT_EQ( shortWait( *monitor ), unseen() );
}

TEST_F( ASubscription, canBeGivenUpOnce ) {
   client->managerCall( "Subscribe", true );
   client->managerCall( "Unsubscribe", true );

   EXPECT_EQ(
      thrownBy( [&] { client->managerCall( "Unsubscribe", true ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Unsubscribe failed: Client "
      "is not subscribed." );
}

class ADaemonReload : public AClient {};

TEST_F( ADaemonReload, isOverWhenTheCallReturns ) {
   const auto folder = unitFolder( *client );
   client->managerCall( "Subscribe", true );
   write( folder / "changing.target", "[Unit]\nDescription=Old\n" );
   call( "StartUnit", "changing.target" );
   write( folder / "changing.target", "[Unit]\nDescription=New\n" );
   ASSERT_EQ( text( client->unitPropertyS( "changing.target", "Description" ) ), "Old" );

   client->managerCall( "Reload", false );

   EXPECT_EQ( text( client->unitPropertyS( "changing.target", "Description" ) ), "New" );
}

TEST_F( ADaemonReload, isSeenEvenIfOnlyAnotherClientHasSubscribed ) {
   const Observer observer;

   for( int i = 0; i < 3; ++i ) {
      client->managerCall( "Reload", false );
   }
}

TEST_F( ADaemonReload, isNeverSeenWithoutASubscriber ) {
   const auto monitor = daemonReloadingMonitorFactory( client->sdbus() );

   client->managerCall( "Reload", true );

   EXPECT_EQ( shortWait( *monitor ), unseen() );
}

TEST_F( ADaemonReload, isSeenEvenIfAnotherClientRequestedIt ) {
   client->managerCall( "Subscribe", true );
   const auto monitor = daemonReloadingMonitorFactory( client->sdbus() );

   run( "systemctl daemon-reload" );

   EXPECT_TRUE( monitor->wait( std::nullopt ) );
}

TEST_F( ADaemonReload, canBeAwaitedRepeatedlyByOneMonitor ) {
   client->managerCall( "Subscribe", true );
   const auto monitor = daemonReloadingMonitorFactory( client->sdbus() );

   for( int i = 0; i < 3; ++i ) {
      client->managerCall( "Reload", true );
      EXPECT_TRUE( monitor->wait( std::nullopt ) );
   }
   EXPECT_EQ( shortWait( *monitor ), expired );
}

TEST_F( ADaemonReload, timesOutWithALimitOfZero ) {
   client->managerCall( "Subscribe", true );
   const auto monitor = daemonReloadingMonitorFactory( client->sdbus() );
   limitIs( *monitor, 0 );

   client->managerCall( "Reload", true );

   EXPECT_EQ(
      thrownBy( [&] { monitor->wait( std::nullopt ); } ),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, 0.000000 timeout" );
}

TEST_F( ADaemonReload, outlastsACallWhoseReplyComesTooLate ) {
   Gate gate( "/run/generator-waits" );
   const std::filesystem::path generators = "/run/systemd/system-generators";
   std::filesystem::create_directories( generators );
   write( generators / "slow", "#!/bin/sh\nread line </run/generator-waits\n" );
   std::filesystem::permissions( generators / "slow", std::filesystem::perms::owner_all );
   const Observer observer;
   const auto other = sdbusFactory();
   const auto monitor = daemonReloadingMonitorFactory( other->sdbus() );
   ASSERT_EQ( sd_bus_set_method_call_timeout( client->sdbus(), 100'000 ), 0 );

   EXPECT_EQ(
      thrownBy( [&] { client->managerCall( "Reload", false ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Reload failed: Connection "
      "timed out" );

   gate.pass();
   EXPECT_TRUE( monitor->wait( std::nullopt ) );
}

class ACallWithoutArguments : public AClient {};

TEST_F( ACallWithoutArguments, isNotSentWhenItsOutcomeCannotBeSeen ) {
   EXPECT_EQ(
      thrownBy( [&] { client->managerCall( "Subscribe", false ); } ),
      "Sodrel::SdbusSyncException: Sdbus::managerCall, method Subscribe doesn't support sync "
      "operations" );

   // A second "Subscribe" would fail.
   client->managerCall( "Subscribe", true );
}

TEST_F( ACallWithoutArguments, reportsAMethodThatTheManagerDoesNotHave ) {
   EXPECT_EQ(
      thrownBy( [&] { client->managerCall( "Mend", true ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Mend failed: Unknown "
      "method Mend or interface "
      "org.freedesktop.systemd1.Manager." );
}

} // namespace

} // namespace SodrelTest
