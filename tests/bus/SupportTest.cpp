// The private bus, its record and the child process that they stand on.
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <unistd.h>

#include <support/ChildProcess.h>
#include <support/PrivateBusRecord.h>

#include "SupportFixtures.h"

namespace Sodrel::Test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct APrivateBus : testing::Test {
   PrivateBus bus;
};

struct APrivateBusRecord : AScriptedManager {};

} // namespace

TEST( AChildProcess, handsOverTheStatusOfItsBody ) {
   EXPECT_EQ( ChildProcess( [] { return 7; } ).wait(), 7 );
   EXPECT_EQ( ChildProcess( [] { return ::raise( SIGTERM ); } ).wait(), 128 + SIGTERM );
}

TEST( AChildProcess, diesWithItsParent ) {
   std::array< int, 2 > alive{};
   ASSERT_EQ( pipe( alive.data() ), 0 );
   ChildProcess parent( [&] {
      const ChildProcess child( [&] {
         EXPECT_EQ( write( alive[1], "x", 1 ), 1 );
         return pause();
      } );
      return pause();
   } );
   close( alive[1] );
   char byte = 0;
   EXPECT_EQ( read( alive[0], &byte, 1 ), 1 );
   parent.kill();
   EXPECT_EQ( read( alive[0], &byte, 1 ), 0 );
   close( alive[0] );
}

TEST_F( APrivateBus, isTheSystemBusAsLongAsItExists ) {
   roundTrip( systemBus().get() );
   EXPECT_EQ( std::getenv( "DBUS_SYSTEM_BUS_ADDRESS" ), bus.address() );
   {
      const PrivateBus inner;
      EXPECT_EQ( std::getenv( "DBUS_SYSTEM_BUS_ADDRESS" ), inner.address() );
   }
   EXPECT_EQ( std::getenv( "DBUS_SYSTEM_BUS_ADDRESS" ), bus.address() );
}

TEST_F( APrivateBus, refusesConnectionsBetweenItsDeathAndItsNextStart ) {
   bus.kill();
   sd_bus* raw = nullptr;
   EXPECT_EQ( sd_bus_open_system( &raw ), -ECONNREFUSED );
   bus.start();
   roundTrip( systemBus().get() );
   bus.start();
   roundTrip( systemBus().get() );
}

TEST_F( APrivateBus, dropsItsClientsWhenItDies ) {
   const BusPtr client = systemBus();
   roundTrip( client.get() );
   bus.kill();
   int processed = 1;
   while( processed > 0 ) {
      processed = sd_bus_process( client.get(), nullptr );
   }
   EXPECT_EQ( processed, -ECONNRESET );
}

TEST_F( APrivateBusRecord, holdsTheCallsAndTheMatchesOfClientsInOrder ) {
   PrivateBusRecord record( bus );
   {
      const BusPtr client = systemBus();
      sd_bus_slot* raw = nullptr;
      checked(
         sd_bus_match_signal(
            client.get(), &raw, managerName, managerPath, managerInterface, "Reloading", nullptr,
            nullptr ),
         "sd_bus_match_signal" );
      const SlotPtr slot( raw );
      int shown = 0;
      checked(
         sd_bus_call_method(
            client.get(), managerName, managerPath, managerInterface, "StopUnit", nullptr, nullptr,
            "ss", "web.service", "fail" ),
         "StopUnit" );
      checked(
         sd_bus_get_property_trivial(
            client.get(), managerName, managerPath, managerInterface, "ShowStatus", nullptr, 'b',
            &shown ),
         "ShowStatus" );
   }
   const std::string match =
      "type='signal',sender='org.freedesktop.systemd1',path='/org/freedesktop/systemd1',"
      "interface='org.freedesktop.systemd1.Manager',member='Reloading'";
   EXPECT_THAT(
      record.texts(),
      ElementsAre(
         "AddMatch " + match, "StopUnit web.service fail",
         "Get org.freedesktop.systemd1.Manager ShowStatus", "RemoveMatch " + match ) );
   EXPECT_EQ( record.calls()[1].path, managerPath );
   EXPECT_EQ( record.calls()[0].sender, record.calls()[3].sender );
   record.clear();
   EXPECT_THAT( record.texts(), IsEmpty() );
}

TEST_F( APrivateBusRecord, leavesOutWhatTheSupportItselfCalls ) {
   PrivateBusRecord record( bus );
   Client().call( "Subscribe" );
   manager.run( { disconnect(), connect(), byStranger( reloading( true ) ) } );
   Client().call( "Subscribe" );
   const std::string match = "AddMatch type='signal',sender='org.freedesktop.systemd1'";
   EXPECT_THAT( record.texts(), ElementsAre( match, "Subscribe", match, "Subscribe" ) );
}

TEST_F( APrivateBusRecord, keepsWhatTheBusHadPassedOnBeforeItsDeath ) {
   PrivateBusRecord record( bus );
   Client().call( "GetUnit", "web.service" );
   bus.kill();
   EXPECT_THAT(
      record.texts(),
      ElementsAre(
         "AddMatch type='signal',sender='org.freedesktop.systemd1'", "GetUnit web.service" ) );
}

} // namespace Sodrel::Test
