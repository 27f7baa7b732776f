// A manager for tests that stands for systemd on a private bus and does what the test tells it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <support/ChildProcess.h>
#include <support/PrivateBus.h>
#include <support/ScriptedManagerActions.h>
#include <support/ScriptedManagerModel.h>

namespace Sodrel::Test {

// Owns org.freedesktop.systemd1 on the bus, from a process of its own, and behaves like systemd
// with some loaded units; scripts replace what it does for a call.
//
//    ScriptedManager manager( bus, { { .name = "web.service", .activeState = "active" } } );
//    manager.onCall( "StartUnit", { reply( jobPath( 7 ) ), jobRemoved( 7, "done" ) } );
//    manager.onCall( "StartUnit", { error( "org.example.No", "No." ) } );   // the second one
//    manager.onCall( "Get SystemState", { reply( body( "v", "s", "degraded" ) ), die() } );
//    manager.run( { reloading( true ) } );                                  // now
//
// A call without a script gets the standard behaviour; an empty script never replies.
// Every operation returns when it is done and the bus has delivered what it caused.
// Throws std::runtime_error if the manager's process has ended.
class ScriptedManager {
 public:
   explicit ScriptedManager( const PrivateBus& bus, std::vector< Unit > loaded = {} );
   ScriptedManager( const ScriptedManager& ) = delete;
   ScriptedManager& operator=( const ScriptedManager& ) = delete;
   ~ScriptedManager();

   // Answers the next call without a script of its own; a call is named by its method, or by
   // "Get" and the property.
   void onCall( const std::string& call, const Script& script );

   // Answers all calls for which no other script is left.
   void onEveryCall( const std::string& call, const Script& script );

   // Does something now, also while a client is blocked. The script may end in die().
   void run( const Script& script );

   // Waits until so many calls of this name have arrived, counted from the manager's start.
   void awaitCall( const std::string& call, unsigned count = 1 );

   // Kills the manager as a crash would.
   void kill();

   // Waits for the end that a script brings about.
   void awaitEnd();

   // Starts the manager anew, with its first units, no script and no subscriber.
   void start();

 private:
   void request( const Words& words );
   void send( const Words& words );
   void awaitAcknowledgement();

   std::string address;
   std::vector< Unit > units;
   int control = -1;
   std::unique_ptr< ChildProcess > process;
};

} // namespace Sodrel::Test
