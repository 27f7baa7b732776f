// A private message bus that stands in for the system bus.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <support/ChildProcess.h>

namespace SodrelTest {

// Runs a real dbus-daemon on which every client may do anything and own any name.
//
// While it exists, sd_bus_open_system connects to it in this process and in its children. The
// socket has an abstract name and the configuration is in memory, so nothing is left on disk,
// however the test ends. Throws std::runtime_error if the daemon does not start.
class PrivateBus {
 public:
   PrivateBus();
   PrivateBus( const PrivateBus& ) = delete;
   PrivateBus& operator=( const PrivateBus& ) = delete;
   ~PrivateBus();

   const std::string& address() const { return address_; }

   // Sets a limit of dbus-daemon(1), such as max_connections_per_user, from the next start on.
   void limitIs( const std::string& name, unsigned value ) { limits_[name] = value; }

   // Kills the daemon, as a crash would, and returns when all of its connections are closed. From
   // then on, connections are refused.
   void kill();

   // Restarts the daemon on the same address, without any connections.
   void start();

 private:
   std::string address_;
   // The default limits leave room for floods of signals.
   std::map< std::string, unsigned > limits_{
      { "max_incoming_bytes", 1'000'000'000 },
      { "max_outgoing_bytes", 1'000'000'000 },
      { "max_match_rules_per_connection", 50'000 },
      { "max_replies_per_connection", 50'000 },
   };
   std::unique_ptr< ChildProcess > daemon_;
};

} // namespace SodrelTest
