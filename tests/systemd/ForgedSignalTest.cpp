// Signals that an unprivileged user forges, and the bus policy that keeps them from clients.
#include "Box.h"

#include <csignal>
#include <filesystem>

#include <unistd.h>

#include <support/BusMessages.h>
#include <support/SystemdNames.h>

namespace SodrelTest {

namespace {

// A connection of the user nobody.
BusPtr connectionOfNobody() {
   constexpr uid_t nobody = 65534;
   checked( seteuid( nobody ), "seteuid" );
   sd_bus* raw = nullptr;
   const int opened = sd_bus_open_system( &raw );
   checked( seteuid( 0 ), "seteuid" );
   checked( opened, "sd_bus_open_system" );
   return BusPtr( raw );
}

// Sends signals of the manager's to one client. They have arrived when the operation returns.
class Forger {
 public:
   explicit Forger( Sdbus& client ) {
      checked( sd_bus_get_unique_name( client.sdbus(), &receiver_ ), "sd_bus_get_unique_name" );
   }

   void jobRemoved( const std::string& job, const std::string& result ) {
      const auto id = static_cast< uint32_t >( std::stoul( job.substr( job.rfind( '/' ) + 1 ) ) );
      send(
         managerPath, managerInterface, "JobRemoved",
         body( "uoss", id, job, "start-waits.service", result ) );
   }

   void reloadEnded() { send( managerPath, managerInterface, "Reloading", body( "b", false ) ); }

   void stateChanged( const std::string& unit, const char* state ) {
      send(
         unitPath( unit ), propertiesInterface, "PropertiesChanged",
         body( "sa{sv}as", unitInterface, 1, "ActiveState", "s", state, 0 ) );
   }

 private:
   void
   send( const std::string& path, const char* interface, const char* member, const Body& content ) {
      sendSignal( connection_.get(), path, interface, member, content, receiver_ );
      roundTrip( connection_.get() );
   }

   BusPtr connection_ = connectionOfNobody();
   const char* receiver_ = nullptr;
};

class AForgedSignal : public AClient {
 protected:
   std::string outcomeOf( const std::string& job ) {
      return thrownBy( [&] { EXPECT_TRUE( monitor->wait( Tessel::String( job ) ) ); } );
   }

   // Starts a unit that waits at the gate, and returns the job.
   std::string started() {
      std::string job = send( "StartUnit", "start-waits.service" );
      gate.await();
      return job;
   }

   static void policyIsInstalled() {
      std::filesystem::copy(
         std::string( SODREL_EXAMPLES ) + "/systemd-signals.conf", "/etc/dbus-1/system.d" );
      run( "systemctl reload dbus.service" );
   }

   Gate gate{ "/run/start-waits" };
   Tessel::Ptr< JobRemovedMonitor > monitor = jobRemovedMonitorFactory( client->sdbus() );
   Forger forger{ *client };
};

TEST_F( AForgedSignal, endsTheWaitForAJob ) {
   const std::string job = started();

   forger.jobRemoved( job, "failed" );
   EXPECT_EQ(
      outcomeOf( job ),
      "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + job + " result: failed" );

   forger.jobRemoved( job, "done" );
   EXPECT_EQ( outcomeOf( job ), "nothing" );
   EXPECT_EQ( stateOf( "start-waits.service" ), "activating" );
}

// If any client has subscribed, the manager's own signals come first.
TEST_F( AForgedSignal, endsTheProcessIfItIsTheSecondEndOfAReload ) {
   const auto reload = [] {
      // sd-bus refuses connections that were opened before a fork.
      const Tessel::Ptr< Sdbus > ownClient = sdbusFactory();
      Forger ownForger( *ownClient );
      CollectedTraces traces( { "SignalMonitor" } );
      const char* const waits = "wait/8: Wait for Reloading signal";
      traces.when( waits, [&] {
         ownForger.reloadEnded();
         traces.when( waits, [&] { ownForger.reloadEnded(); } );
      } );
      ownClient->managerCall( "Reload", false );
   };
   if( busHasSubscribed() ) {
      EXPECT_EQ( thrownBy( reload ), "nothing" );
      return;
   }
   EXPECT_EXIT(
      reload(), testing::KilledBySignal( SIGABRT ),
      "src/Sodrel/Sodrel.cpp:[0-9]+: void Sodrel::Sdbus::managerCall\\(const String&, bool\\): "
      "Assertion `signalMonitor->wait\\( *std::nullopt *\\)' failed." );
}

TEST_F( AForgedSignal, isKeptAwayByTheBusPolicy ) {
   policyIsInstalled();
   const auto reloadingMonitor = daemonReloadingMonitorFactory( client->sdbus() );
   const std::string job = started();

   forger.jobRemoved( job, "failed" );
   forger.reloadEnded();
   gate.pass();

   EXPECT_EQ( outcomeOf( job ), "nothing" );
   EXPECT_EQ( stateOf( "start-waits.service" ), "active" );
   EXPECT_EQ(
      shortWait( *reloadingMonitor ),
      "Sodrel::SdbusSyncException: DaemonReloadingMonitor::wait, 0.050000 timeout" );
   client->managerCall( "Subscribe", true );
   client->managerCall( "Reload", false );
}

// Any service sends "PropertiesChanged", so no policy can restrict it to root.
TEST_F( AForgedSignal, canStillClaimAnotherUnitStateDespiteTheBusPolicy ) {
   policyIsInstalled();
   const std::string unit = "start-waits.service";
   started();
   const auto unitMonitor =
      unitReloadingMonitorFactory( client->sdbus(), client->asyncManagerCallSO( "GetUnit", unit ) );

   forger.stateChanged( unit, "activating" );
   forger.stateChanged( unit, "active" );

   EXPECT_EQ( thrownBy( [&] { EXPECT_TRUE( unitMonitor->wait( std::nullopt ) ); } ), "nothing" );
   EXPECT_EQ( stateOf( unit ), "activating" );
}

} // namespace

} // namespace SodrelTest
