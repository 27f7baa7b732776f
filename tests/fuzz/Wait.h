// A monitor's wait for the signals of an input, compared with a model of the expected outcome.
#pragma once

#include "PrivateConnection.h"

#include <Sodrel/SignalMonitor.h>

#include <string>

namespace SodrelTest {

using Object = Orl::Optional< Tessel::String >;

// Waits for what has been sent already: the second reading of the steady clock is just before the
// time limit of 600 s, all later ones at it. Returns "true" or "false", or the exception.
std::string outcomeOfWait( Sodrel::SignalMonitor& monitor, const Object& object );

// Sends the bodies of the input, at most 64, as signals with the same header, to a monitor that
// `factory` creates on a connection, and waits. Ends the process unless the outcome is that of the
// model, which receives the same signals. Returns the monitor's record.
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
   const std::string outcome = outcomeOfWait( *monitor, object ); // feeds the model
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

// Reads one value of a basic type. Returns whether it could be read.
inline bool readBasic( sd_bus_message* message, char type, void* value ) {
   return sd_bus_message_read_basic( message, type, value ) > 0;
}

} // namespace SodrelTest
