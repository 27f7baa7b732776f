// A monitor's wait for signals that an input holds, beside a model of what it should come to.
#pragma once

#include "PrivateConnection.h"

#include <Sodrel/SignalMonitor.h>

#include <string>

namespace SodrelTest {

using Object = Orl::Optional< Tessel::String >;

// Waits for what has been sent already: the second reading of the steady clock is just before the
// time limit of 600 s, all later ones at it. Returns "true" or "false", or the exception.
std::string outcomeOfWait( Sodrel::SignalMonitor& monitor, const Object& object );

// Sends the bodies that the input holds, 64 at most, as signals under one header, to a monitor
// that `factory` makes of a connection, and waits. Ends the process unless the outcome is that of
// the model, which hears the same signals. Returns the monitor's record.
template< typename Model, typename Factory >
auto recordOfWait(
   Input& input, const Header& header, Model& model, const Factory& factory,
   const Object& object = std::nullopt ) {
   PrivateConnection connection;
   connection.hear = [&]( sd_bus_message* signal ) { model.hear( signal ); };
   const auto monitor = factory( connection.bus() );
   for( int sent = 0; sent < 64 && !input.empty(); ++sent ) {
      connection.send( header, takeBody( input ) );
   }
   const std::string outcome = outcomeOfWait( *monitor, object ); // lets the model hear
   requireSame( outcome, model.outcome() );
   return monitor->dataIs();
}

// Ends the process unless the record's attribute has this value.
template< typename Value >
void requireAttribute( Tessel::Node& record, const char* name, const Value& expected ) {
   Value value{};
   const int answer = Tessel::memberOf( record, name ).read( record, &value );
   require( answer == Tessel::accessDone && value == expected, name );
}

// Reads one value of a basic type; whether it could be read.
inline bool readBasic( sd_bus_message* message, char type, void* value ) {
   return sd_bus_message_read_basic( message, type, value ) > 0;
}

} // namespace SodrelTest
