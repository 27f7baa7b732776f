// Message bodies as values, and sending and reading messages.
#pragma once

#include <concepts>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include <support/BusPointers.h>

namespace SodrelTest {

// The body of a message, empty by default: its D-Bus signature, and how its values are appended.
struct Body {
   std::string signature;
   std::function< int( sd_bus_message* ) > append = []( sd_bus_message* ) { return 0; };
};

inline const char* asArgument( const std::string& text ) {
   return text.c_str();
}

template< typename T >
requires( !std::same_as< T, std::string > ) T asArgument( T value ) {
   return value;
}

// A body with values as sd_bus_message_append(3) takes them, where strings may be std::string:
// body( "sa{sv}as", "org.freedesktop.systemd1.Unit", 1, "ActiveState", "s", "active", 0 ).
template< typename... Values >
Body body( const std::string& signature, Values... values ) {
   return { signature, [=]( sd_bus_message* message ) {
              return sd_bus_message_append( message, signature.c_str(), asArgument( values )... );
           } };
}

// Returns the object path that systemd derives from a unit's name, or from a job's number.
std::string unitPath( const std::string& name );
std::string jobOf( uint32_t id );

// Sends a signal or a reply. If the connection is closed, the message is dropped.
// Throws std::system_error if it cannot be composed or sent.
void sendSignal(
   sd_bus* bus, const std::string& path, const std::string& interface, const std::string& member,
   const Body& content, const std::string& receiver = "" );
void sendReply( sd_bus_message* call, const Body& content );

// Replies with a D-Bus error, with or without a message.
void sendError(
   sd_bus_message* call, const std::string& name, const std::optional< std::string >& message );

// Returns the name of a method or signal, or "reply" or the name of the error, followed by the
// values of the body, each after a blank, without any mark for containers.
std::string messageText( sd_bus_message* message );

} // namespace SodrelTest
