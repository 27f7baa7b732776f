// Owners of sd-bus objects, and connecting to a bus by its address.
#pragma once

#include <memory>
#include <string>
#include <system_error>

#include <systemd/sd-bus.h>

namespace SodrelTest {

template< auto release >
struct Releaser {
   template< typename T >
   void operator()( T* object ) const {
      release( object );
   }
};

using BusPtr = std::unique_ptr< sd_bus, Releaser< sd_bus_flush_close_unref > >;
using MessagePtr = std::unique_ptr< sd_bus_message, Releaser< sd_bus_message_unref > >;
using TrackPtr = std::unique_ptr< sd_bus_track, Releaser< sd_bus_track_unref > >;

// Returns the result of an sd-bus function. Throws std::system_error if it is negative.
inline int checked( int result, const char* what ) {
   if( result < 0 ) {
      throw std::system_error( -result, std::generic_category(), what );
   }
   return result;
}

// Connects to the bus at an address; with `monitor`, for BecomeMonitor to be called next.
inline BusPtr busAt( const std::string& address, bool monitor = false ) {
   sd_bus* raw = nullptr;
   checked( sd_bus_new( &raw ), "sd_bus_new" );
   BusPtr bus( raw );
   checked( sd_bus_set_monitor( raw, monitor ), "sd_bus_set_monitor" );
   checked( sd_bus_set_address( raw, address.c_str() ), "sd_bus_set_address" );
   checked( sd_bus_set_bus_client( raw, true ), "sd_bus_set_bus_client" );
   checked( sd_bus_start( raw ), "sd_bus_start" );
   return bus;
}

// Returns the unique name of the owner of a name, or "" if there is none.
inline std::string ownerOf( sd_bus* bus, const char* name ) {
   sd_bus_creds* raw = nullptr;
   if( sd_bus_get_name_creds( bus, name, SD_BUS_CREDS_UNIQUE_NAME, &raw ) < 0 ) {
      return "";
   }
   const std::unique_ptr< sd_bus_creds, Releaser< sd_bus_creds_unref > > owner( raw );
   const char* unique = nullptr;
   checked( sd_bus_creds_get_unique_name( raw, &unique ), "sd_bus_creds_get_unique_name" );
   return unique;
}

// Returns once the bus has handled everything that was sent on this connection.
inline void roundTrip( sd_bus* bus ) {
   checked(
      sd_bus_call_method(
         bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
         nullptr, nullptr, "" ),
      "GetId" );
}

} // namespace SodrelTest
