// The behaviour of systemd: units, jobs and subscribers on a connection.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <poll.h>

#include <support/BusMessages.h>

namespace SodrelTest {

// A loaded unit and its behaviour.
struct Unit {
   std::string name;
   std::string activeState = "inactive";
   bool canReload = true;
   bool startFails = false;
   // A service of Type=simple becomes "active" without being "activating".
   bool announcesStart = true;
};

// Serves the manager's objects and owns the manager's name while it is connected.
//
// Thread: everything runs on a single thread, that of the connection.
class ScriptedManagerModel {
 public:
   // The filter sees each message before the objects.
   ScriptedManagerModel(
      std::string busAddress, const std::vector< Unit >& loaded, sd_bus_message_handler_t filter,
      void* userdata );

   // Reconnects, without subscribers.
   void connect();

   // Returns when the bus knows that the name has no owner.
   void disconnect();

   // Returns when the bus has forwarded everything that was sent, or has died.
   void deliver();

   // Handles what has been received. Returns what to wait for.
   pollfd process();

   // Null while it is not connected.
   sd_bus* bus() const { return bus_.get(); }
   const std::string& address() const { return address_; }

   // Null if there is no unit at this object path.
   Unit* unitAt( const char* path );

   void changeState( const std::string& unitName, const std::string& state );

   // Handlers of method calls.
   void subscribe( sd_bus_message* call );
   void reload( sd_bus_message* call );
   void getUnit( sd_bus_message* call );
   void doJob( sd_bus_message* call );

 private:
   bool subscribed() const;
   void run( const std::string& method, Unit& unit );
   void announce( const Unit& unit );

   const std::string address_;
   const sd_bus_message_handler_t filter_;
   void* const userdata_;
   std::map< std::string, Unit > units_;
   uint32_t lastJob_ = 0;
   BusPtr bus_;
   TrackPtr subscribers_;
};

} // namespace SodrelTest
