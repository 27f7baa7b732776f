// A manager for tests that stands in for systemd on a private bus and does what the test says.
#pragma once

#include <deque>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <support/PrivateBus.h>
#include <support/ScriptedManagerActions.h>
#include <support/ScriptedManagerModel.h>

namespace SodrelTest {

// Owns org.freedesktop.systemd1 on the bus, on a separate thread, and behaves like systemd with
// some loaded units. Scripts replace what it does for a call.
//
//    ScriptedManager manager( bus, { { .name = "web.service", .activeState = "active" } } );
//    manager.onCall( "StartUnit", { replyJob( 7 ), jobRemoved( 7, "done" ) } );
//    manager.onCall( "StartUnit", { error( "org.example.No", "No." ) } );   // the second one
//    manager.onCall( "Get SystemState", { reply( body( "v", "s", "degraded" ) ) } );
//    manager.run( { reloading( true ) } );                                  // now
//
// A call without a script gets the standard behaviour; an empty script never replies.
// Thread: all operations may be called while a client on the same thread is in the middle of one.
// After a fork, the manager belongs to the parent.
class ScriptedManager {
 public:
   explicit ScriptedManager( const PrivateBus& bus, std::vector< Unit > loaded = {} );
   ScriptedManager( const ScriptedManager& ) = delete;
   ScriptedManager& operator=( const ScriptedManager& ) = delete;
   ~ScriptedManager();

   // Sets what is done for the next call that has no script yet. A call is named by its method, or
   // by "Get" and the property.
   void onCall( const std::string& call, const Script& script );

   // Sets what is done for all calls that have no other script left.
   void onEveryCall( const std::string& call, const Script& script );

   // Carries out a script, and returns when the bus has delivered it and everything sent before.
   // Throws what an action throws.
   void run( const Script& script );

   // Carries out a script soon, for example while a client blocks after this has returned.
   void runSoon( const Script& script );

   // Restarts the manager with its initial units, no scripts and no subscribers.
   void start();

 private:
   static int onMessage( sd_bus_message* message, void* manager, sd_bus_error* error ) noexcept;
   bool answer( sd_bus_message* call );
   void perform( const Script& script, sd_bus_message* call );
   std::future< void > inItsThread( std::function< void() > task );
   void serve();

   const std::string address_;
   const std::vector< Unit > units_;
   std::optional< ScriptedManagerModel > model_;
   std::map< std::string, std::deque< Script > > nextScripts_;
   std::map< std::string, Script > lastingScripts_;
   bool ended_ = false;

   int wakeUp_;
   std::mutex tasksMutex_;
   std::deque< std::packaged_task< void() > > tasks_;
   std::thread thread_;
};

} // namespace SodrelTest
