// Messages whose bodies are given as text.
#pragma once

#include <systemd/sd-bus.h>

#include <support/ScriptedManagerActions.h>

namespace Sodrel::Test {

// Appends the body that the words hold from `at` on: the signature, then the values.
// Throws std::out_of_range if there are fewer values than the signature asks for.
void appendBody( sd_bus_message* message, const Words& words, size_t at = 0 );

// Emits the signal that the words hold: path, interface, member, signature, values.
// Without a connection, null or closed, the signal goes nowhere; so does a reply.
void emitSignal( sd_bus* bus, const Words& words );

// Replies with the body that the words hold, or with an error: its name, and its message if any.
void sendReply( sd_bus_message* call, const Words& words );
void sendError( sd_bus_message* call, const Words& words );

// Returns a message's member, if it has one, and all values of its body with a blank between them;
// containers leave no trace.
std::string messageText( sd_bus_message* message );

} // namespace Sodrel::Test
