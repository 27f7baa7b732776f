// The service that systemd asks about the rights of a client without any, played by the test.
#include "Box.h"

#include <optional>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

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
           "  <policy user=\"root\">\n"
           "    <allow own=\"org.freedesktop.PolicyKit1\"/>\n"
           "    <allow send_destination=\"org.freedesktop.PolicyKit1\"/>\n"
           "  </policy>\n"
           "</busconfig>\n"
           "END\n"
           "systemctl reload dbus.service" );
      sd_bus* raw = nullptr;
      checked( sd_bus_open_system( &raw ), "sd_bus_open_system" );
      bus_.reset( raw );
      checked( sd_bus_add_filter( raw, nullptr, onMessage, nullptr ), "sd_bus_add_filter" );
      checked( sd_bus_request_name( raw, "org.freedesktop.PolicyKit1", 0 ), "sd_bus_request_name" );
      connection_ = checked( dup( sd_bus_get_fd( raw ) ), "dup" );
      withoutRights_.emplace();
      // Only now: a change of the user interrupts all threads, and sd-bus says so.
      thread_ = std::thread( [raw] {
         while( sd_bus_process( raw, nullptr ) >= 0 && sd_bus_wait( raw, UINT64_MAX ) >= 0 ) {
         }
      } );
   }
   void TearDown() override {
      shutdown( connection_, SHUT_RDWR );
      thread_.join();
      close( connection_ );
   }

   const std::string recipientIsGone =
      busIsBroker() ? "Remote peer disconnected"
                    : "Message recipient disconnected from message bus without replying";

 private:
   static int onMessage( sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/ ) {
      if( sd_bus_message_is_method_call( message, nullptr, "CheckAuthorization" ) > 0 ) {
         shutdown( sd_bus_get_fd( sd_bus_message_get_bus( message ) ), SHUT_RDWR );
      }
      return 0;
   }

   std::optional< WithoutRights > withoutRights_;
   BusPtr bus_;
   int connection_ = -1;
   std::thread thread_;
};

TEST_F( ADyingAuthority, isNamedAsARecipientThatIsGone ) {
   client = sdbusFactory();
   EXPECT_EQ(
      thrownBy( [&] { call( "StartUnit", "simple-without-reload.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, sd-bus call StartUnit "
      "simple-without-reload.service replace failed: " +
         recipientIsGone );
   // The call has not been carried out.
   EXPECT_EQ(
      thrownBy( [&] { stateOf( "simple-without-reload.service" ); } ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit "
      "simple-without-reload.service failed: Unit simple-without-reload.service not loaded." );
}

} // namespace

} // namespace SodrelTest
