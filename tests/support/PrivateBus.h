// A message bus of the test's own that stands in for the system bus.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <support/ChildProcess.h>

namespace SodrelTest {

// Runs a real dbus-daemon on which everybody may do everything and own every name.
//
// As long as it exists, sd_bus_open_system of this process, and of those that it starts, leads
// there. The socket has an abstract name and the configuration is in memory, so nothing is left
// behind on disk, however the test ends.
// Throws std::runtime_error if the daemon does not start.
class PrivateBus {
 public:
   PrivateBus();
   PrivateBus( const PrivateBus& ) = delete;
   PrivateBus& operator=( const PrivateBus& ) = delete;
   ~PrivateBus();

   const std::string& address() const { return address_; }

   // Sets a limit of dbus-daemon(1), such as max_connections_per_user, from the next start on.
   void limitIs( const std::string& name, unsigned value ) { limits_[name] = value; }

   // Kills the daemon as a crash would, and returns when all of its connections are closed; from
   // then on connecting is refused.
   void kill();

   // Starts the daemon anew on the same address; nobody is connected to it.
   void start();

 private:
   std::string address_;
   // The default ones leave room for floods of signals.
   std::map< std::string, unsigned > limits_{
      { "max_incoming_bytes", 1'000'000'000 },
      { "max_outgoing_bytes", 1'000'000'000 },
      { "max_match_rules_per_connection", 50'000 },
      { "max_replies_per_connection", 50'000 },
   };
   std::unique_ptr< ChildProcess > daemon_;
};

} // namespace SodrelTest
