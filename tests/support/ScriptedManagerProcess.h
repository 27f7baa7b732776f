// The inside of the scripted manager's process.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <support/BusPointers.h>
#include <support/ScriptedManagerActions.h>
#include <support/ScriptedManagerModel.h>

namespace Sodrel::Test {

// Answers the calls on the bus by their scripts, or as the model does if there are none, and
// carries out what the test asks for through the control socket, until that is closed.
//
// Each request is acknowledged when it is done and the bus has delivered all that was sent.
class ScriptedManagerProcess {
 public:
   ScriptedManagerProcess(
      int controlSocket, std::string busAddress, const std::vector< Unit >& units );
   int run();

 private:
   // A script being carried out; without a call if the test asked for it.
   struct Run {
      MessagePtr call;
      std::deque< Action > rest;
      std::optional< uint32_t > job;
   };

   static int onMessage( sd_bus_message* message, void* process, sd_bus_error* error ) noexcept;
   int answer( sd_bus_message* call );
   void proceed( Run run );
   void perform( const Action& action, Run& run );
   void raiseEvent( const std::string& event );

   void connectToBus();
   void disconnectFromBus();
   void deliver();
   void killDaemon();
   void sendSignal( const Action& action );
   void floodWithJobs( uint32_t first, uint32_t count );

   bool serveRequest();
   void acknowledge();

   int control;
   std::string address;
   ScriptedManagerModel model;
   BusPtr bus;
   std::map< std::string, std::deque< Script > > nextScripts;
   std::map< std::string, Script > lastingScripts;
   std::multimap< std::string, Run > held;
   std::map< std::string, unsigned long > callCounts;
   std::optional< std::pair< std::string, unsigned long > > awaited;
};

} // namespace Sodrel::Test
