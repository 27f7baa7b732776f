// A connection of sd-bus whose other end is in the hands of a fuzz target, without any bus.
#pragma once

#include "Fuzz.h"

#include <Sodrel/Exceptions.h>
#include <support/BusPointers.h>

#include <functional>
#include <string>
#include <string_view>

namespace SodrelTest {

// A message's body as it is on the wire, and what it says to be.
struct Body {
   std::string_view signature;
   std::string_view bytes;
};

// Takes a body off an input: the lengths of signature and bytes, in 8 and 16 bits, then both.
Body takeBody( Input& input );

// The header of a message: its fields are left out where they are empty or 0.
struct Header {
   std::uint8_t type = SD_BUS_MESSAGE_SIGNAL;
   const char* path = "";
   const char* interface = "";
   const char* member = "";
   const char* errorName = "";
   std::uint32_t replyTo = 0;
};

// Sends from org.freedesktop.systemd1. sd-bus checks the header when a message arrives, but the
// body only when it is read.
class PrivateConnection {
 public:
   PrivateConnection();
   PrivateConnection( const PrivateConnection& ) = delete;
   PrivateConnection& operator=( const PrivateConnection& ) = delete;

   // The end under test. `release` gives it away, with its one use.
   [[nodiscard]] sd_bus* bus() const { return bus_.get(); }
   sd_bus* release() { return bus_.release(); }

   // Gets each message before anybody else, if set.
   std::function< void( sd_bus_message* ) > hear;

   // Puts a message into the socket. A connection takes 64 of up to 64 KB for certain.
   void send( const Header& header, const Body& body );

 private:
   BusPtr bus_;
   BusPtr peer_;
   std::uint32_t serial_ = 1000;
};

// What an operation of the library comes to: its text, or the exception as "class: text".
template< typename Operation >
std::string outcomeOf( const Operation& operation ) {
   try {
      return operation();
   } catch( const Sodrel::Exception& exception ) {
      return std::string( exception.name() ) + ": " + exception.what();
   }
}

} // namespace SodrelTest
