// What a manager does that nobody has scripted: units, jobs and subscribers as systemd has them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <support/BusPointers.h>
#include <support/ScriptedManagerActions.h>

namespace Sodrel::Test {

// A loaded unit, and how it takes what is done to it.
struct Unit {
   std::string name;
   std::string activeState = "inactive";
   bool canReload = true;
   bool reloadFails = false;
   bool startFails = false;
   // A service of Type=simple goes to "active" without passing "activating".
   bool announcesStart = true;
};

// A job that has been queued and has not ended: the states that its unit will go through.
struct Job {
   std::string unit;
   std::string type;
   std::vector< std::string > states;
   std::string result;
};

// Borrows the connection between attach and detach; without one, its signals go nowhere.
class ScriptedManagerModel {
 public:
   explicit ScriptedManagerModel( const std::vector< Unit >& units );

   // Serves the objects on a new connection, on which nobody has subscribed yet.
   void attach( sd_bus* connection );
   void detach();

   // Does everything that a call of the manager's interface asks for, the reply included.
   void standard( sd_bus_message* call );

   // The first half of a job method: replies with the job or with an error, then without a job.
   std::optional< uint32_t > queueJob( sd_bus_message* call );

   // The second half; an empty result stands for the one that the job has by itself.
   void finishJob( uint32_t id, const std::string& result );

   // Null if there is no such unit or job.
   const Unit* unitAt( const std::string& path ) const;
   const Job* jobAt( const std::string& path ) const;

   void changeState( const std::string& unitName, const std::string& state );

 private:
   static Job planned( const std::string& method, const Unit& unit );
   void subscribe( sd_bus_message* call );
   void unsubscribe( sd_bus_message* call );
   void reload( sd_bus_message* call );
   void getUnit( sd_bus_message* call );
   bool subscribed() const;
   void announce( const Unit& unit );

   std::map< std::string, Unit > units;
   std::map< uint32_t, Job > jobs;
   uint32_t lastJob = 0;
   sd_bus* bus = nullptr;
   TrackPtr subscribers;
};

} // namespace Sodrel::Test
