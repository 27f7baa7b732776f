// Owners of sd-bus objects, and connecting to a bus by its address.
#pragma once

#include <memory>
#include <string>
#include <system_error>

#include <systemd/sd-bus.h>

namespace Sodrel::Test {

template< auto release >
struct Releaser {
   template< typename T >
   void operator()( T* object ) const {
      release( object );
   }
};

using BusPtr = std::unique_ptr< sd_bus, Releaser< sd_bus_flush_close_unref > >;
using MessagePtr = std::unique_ptr< sd_bus_message, Releaser< sd_bus_message_unref > >;
using SlotPtr = std::unique_ptr< sd_bus_slot, Releaser< sd_bus_slot_unref > >;
using TrackPtr = std::unique_ptr< sd_bus_track, Releaser< sd_bus_track_unref > >;

// An error structure that frees its contents.
struct BusError : sd_bus_error {
   BusError() : sd_bus_error{ nullptr, nullptr, 0 } {}
   BusError( const BusError& ) = delete;
   BusError& operator=( const BusError& ) = delete;
   ~BusError() { sd_bus_error_free( this ); }
};

// Returns what sd-bus returned. Throws std::system_error if that is negative.
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

// Waits until the bus has handled all that was sent on this connection.
inline void roundTrip( sd_bus* bus ) {
   checked(
      sd_bus_call_method(
         bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
         nullptr, nullptr, "" ),
      "GetId" );
}

} // namespace Sodrel::Test
