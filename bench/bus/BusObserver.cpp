// Subscribes to the manager's signals for everybody, and counts method calls on the wire on demand.
//
// "record" starts counting and is answered "recording"; "count" ends it and is answered with the
// number of calls that ask for a reply, and of those that do not.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>
#include <string>

#include <support/BusPointers.h>

using namespace Sodrel::Test;

namespace {

constexpr const char* busName = "org.freedesktop.DBus";
constexpr const char* busPath = "/org/freedesktop/DBus";
constexpr const char* managerName = "org.freedesktop.systemd1";

BusPtr systemBus( bool monitor ) {
   const char* const address = std::getenv( "DBUS_SYSTEM_BUS_ADDRESS" );
   return busAt( address ? address : "unix:path=/run/dbus/system_bus_socket", monitor );
}

class Recording {
 public:
   // What the observer itself and the manager call does not count.
   explicit Recording( sd_bus* observer ) : monitor( systemBus( true ) ) {
      checked(
         sd_bus_call_method(
            monitor.get(), busName, busPath, "org.freedesktop.DBus.Monitoring", "BecomeMonitor",
            nullptr, nullptr, "asu", 1, "type='method_call'", 0 ),
         "BecomeMonitor" );
      const char* name = nullptr;
      checked( sd_bus_get_unique_name( observer, &name ), "sd_bus_get_unique_name" );
      uncounted.insert( observerName = name );
      sd_bus_creds* owner = nullptr;
      checked(
         sd_bus_get_name_creds( observer, managerName, SD_BUS_CREDS_UNIQUE_NAME, &owner ),
         managerName );
      checked( sd_bus_creds_get_unique_name( owner, &name ), "sd_bus_creds_get_unique_name" );
      uncounted.insert( name );
      sd_bus_creds_unref( owner );
   }

   // Counts up to the observer's next call, which has been sent.
   void collect() {
      for( ;; ) {
         sd_bus_message* raw = nullptr;
         const int processed = checked( sd_bus_process( monitor.get(), &raw ), "sd_bus_process" );
         const MessagePtr message( raw );
         if( processed == 0 ) {
            checked( sd_bus_wait( monitor.get(), UINT64_MAX ), "sd_bus_wait" );
         } else if( raw && sd_bus_message_is_method_call( raw, nullptr, nullptr ) > 0 ) {
            const std::string sender = sd_bus_message_get_sender( raw );
            if( sd_bus_message_is_method_call( raw, busName, "GetId" ) > 0 &&
                sender == observerName ) {
               return;
            }
            if( !uncounted.contains( sender ) ) {
               ++( sd_bus_message_get_expect_reply( raw ) > 0 ? awaited : unawaited );
            }
         }
      }
   }

   unsigned awaited = 0;
   unsigned unawaited = 0;

 private:
   BusPtr monitor;
   std::string observerName;
   std::set< std::string > uncounted;
};

} // namespace

int main() {
   const BusPtr observer = systemBus( false );
   checked(
      sd_bus_call_method(
         observer.get(), managerName, "/org/freedesktop/systemd1",
         "org.freedesktop.systemd1.Manager", "Subscribe", nullptr, nullptr, "" ),
      "Subscribe" );
   std::cout << "ready" << std::endl;
   std::unique_ptr< Recording > recording;
   std::string command;
   while( std::cin >> command ) {
      if( command == "record" ) {
         recording = std::make_unique< Recording >( observer.get() );
         std::cout << "recording" << std::endl;
      } else {
         // The bus may read the first call before one that lay beside it, but never the second.
         for( int round = 0; round < 2; ++round ) {
            roundTrip( observer.get() );
            recording->collect();
         }
         std::cout << recording->awaited << ' ' << recording->unawaited << std::endl;
         recording.reset();
      }
   }
}
