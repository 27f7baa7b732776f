// A monitor's wait for signals that an input holds.
#pragma once

#include "PrivateConnection.h"

#include <Sodrel/SignalMonitor.h>

#include <string>

namespace Sodrel::Fuzz {

// Sends the bodies that the input holds, 64 at most, as signals under one header.
void sendSignals( PrivateConnection& connection, const Header& header, Input& input );

// Waits for what has been sent already: the second reading of the steady clock is just before the
// time limit of 600 s, all later ones at it. Returns "true" or "false", or the exception as
// "class: text".
std::string outcomeOf( SignalMonitor& monitor, const Orl::Optional< Tessel::String >& object );

// Reads an attribute of a callback's record.
template< typename Value >
Value attributeOf( Tessel::Node& record, std::string_view name ) {
   Value value{};
   const int answer = Tessel::memberOf( record, name ).read( record, &value );
   require( answer == Tessel::accessDone, "the attribute can be read" );
   return value;
}

// Reads one value of a basic type; whether it could be read.
inline bool readBasic( sd_bus_message* message, char type, void* value ) {
   return sd_bus_message_read_basic( message, type, value ) > 0;
}

} // namespace Sodrel::Fuzz
