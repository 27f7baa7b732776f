// The actions of a scripted manager, from which tests compose their scripts.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <support/BusMessages.h>
#include <support/PrivateBus.h>

namespace SodrelTest {

class ScriptedManagerModel;

// The execution of a script.
struct Turn {
   ScriptedManagerModel& manager;
   // The connection that signals are sent on.
   sd_bus* sender;
   // Null if the test asked for it.
   sd_bus_message* call;
};

struct Action {
   std::function< void( Turn& ) > act;
   bool isReply = false;
};

using Script = std::vector< Action >;

// Replies to the call. The body may have the wrong type or be empty.
Action reply( const Body& content = {} );

// Replies with the path of a job.
Action replyJob( uint32_t id );

// Replies with a D-Bus error, with or without a message.
Action error( const std::string& name, const std::optional< std::string >& message = {} );

// Emit a signal, regardless of subscriptions: any signal, or one of the manager object.
Action signal(
   const std::string& path, const std::string& interface, const std::string& member,
   const Body& content );
Action signal( const std::string& member, const Body& content );
Action
jobRemoved( uint32_t id, const std::string& result, const std::string& unit = "any.service" );
Action reloading( bool active );
Action propertiesChanged( const std::string& unit, const Body& content );

// Changes a unit's ActiveState and emits the signal.
Action activeState( const std::string& unit, const std::string& state );

// Emits JobRemoved with "done" for each of `count` jobs, the first of which is `first`.
Action foreignJobs( uint32_t first, uint32_t count );

// Emits the signal from a connection that does not own the manager's name.
Action byStranger( const Action& signal );

// Lose and regain the manager's name, or the whole connection, as when systemd crashes and is
// restarted, without subscribers.
Action releaseName();
Action acquireName();
Action disconnect();
Action connect();

// Kills the bus once all earlier messages have been delivered.
Action killBus( PrivateBus& bus );

// Calls a function of the test on the manager's thread, with the call.
Action custom( const std::function< void( sd_bus_message* ) >& function );

} // namespace SodrelTest
