// The service that systemd asks about the rights of a client without any, played by the test.
#include "Box.h"

#include <optional>
#include <thread>

namespace SodrelTest {

namespace {

// Owns polkit's name and dies when it is asked.
class ADyingAuthority : public AClient {
 protected:
   void SetUp() override {
      run( "cat >/etc/dbus-1/system.d/dying-authority.conf <<END\n"
           "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <policy user=\"root\"><allow own=\"org.freedesktop.PolicyKit1\"/></policy>\n"
           "</busconfig>\n"
           "END\n"
           "systemctl reload dbus.service" );
      sd_bus* raw = nullptr;
      checked( sd_bus_open_system( &raw ), "sd_bus_open_system" );
      bus_.reset( raw );
      checked( sd_bus_add_filter( raw, nullptr, onMessage, this ), "sd_bus_add_filter" );
      checked( sd_bus_request_name( raw, "org.freedesktop.PolicyKit1", 0 ), "sd_bus_request_name" );
      withoutRights_.emplace();
      // Only now: a change of the user interrupts all threads, and sd-bus says so.
      thread_ = std::thread( [this] {
         while( !asked_ ) {
            if( checked( sd_bus_process( bus_.get(), nullptr ), "sd_bus_process" ) == 0 ) {
               checked( sd_bus_wait( bus_.get(), UINT64_MAX ), "sd_bus_wait" );
            }
         }
         bus_.reset();
      } );
   }
   void TearDown() override { thread_.join(); }

 private:
   static int onMessage( sd_bus_message* message, void* authority, sd_bus_error* /*error*/ ) {
      if( sd_bus_message_is_method_call( message, nullptr, "CheckAuthorization" ) > 0 ) {
         static_cast< ADyingAuthority* >( authority )->asked_ = true;
         return 1;
      }
      return 0;
   }

   std::optional< WithoutRights > withoutRights_;
   BusPtr bus_;
   bool asked_ = false;
   std::thread thread_;
};

TEST_F( ADyingAuthority, isNamedAsARecipientThatIsGone ) {
   client = sdbusFactory();
   EXPECT_EQ(
      thrownBy( [&] { call( "StartUnit", "simple-without-reload.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, sd-bus call StartUnit "
      "simple-without-reload.service replace failed: Message recipient disconnected from message "
      "bus without replying" );
   // The call has not been carried out.
   EXPECT_EQ(
      thrownBy( [&] { stateOf( "simple-without-reload.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit "
      "simple-without-reload.service failed: Unit simple-without-reload.service not loaded." );
}

} // namespace

} // namespace SodrelTest
