// An sd-bus connection whose other end is controlled by a fuzz target, without any bus.
#pragma once

#include "Fuzz.h"

#include <Sodrel/Exceptions.h>
#include <support/BusPointers.h>

#include <functional>
#include <string>
#include <string_view>

namespace SodrelTest {

// A message's body as on the wire, and its claimed signature.
struct Body {
   std::string_view signature;
   std::string_view bytes;
};

// Parses a body: the lengths of the signature and the bytes, in 8 and 16 bits, then both.
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

   // Returns the end under test. `release` transfers its only reference.
   [[nodiscard]] sd_bus* bus() const { return bus_.get(); }
   sd_bus* release() { return bus_.release(); }

   // If set, receives each message first.
   std::function< void( sd_bus_message* ) > hear;

   // Writes a message to the socket, which has room for at least 64 messages of up to 64 KB.
   void send( const Header& header, const Body& body );

 private:
   BusPtr bus_;
   BusPtr peer_;
   std::uint32_t serial_ = 1000;
};

// Returns the outcome of an operation: its text, or the exception as "class: text".
template< typename Operation >
std::string outcomeOf( const Operation& operation ) {
   try {
      return operation();
   } catch( const Sodrel::Exception& exception ) {
      return std::string( exception.name() ) + ": " + exception.what();
   }
}

} // namespace SodrelTest
