// What has been sent on a private bus, in the order of the wire.
#pragma once

#include <set>
#include <string>
#include <vector>

#include <support/BusPointers.h>
#include <support/PrivateBus.h>

namespace SodrelTest {

// A method call: of the manager and its objects, or AddMatch or RemoveMatch of the bus itself.
struct RecordedCall {
   std::string sender;
   std::string path;
   // The member and its arguments with a blank before each, as in "StartUnit web.service replace"
   // or "Get org.freedesktop.systemd1.Manager SystemState".
   std::string text;
};

// Records all messages from its creation on.
class PrivateBusRecord {
 public:
   explicit PrivateBusRecord( const PrivateBus& bus );

   // Returns all calls that clients have made since the creation, without those of the test
   // support itself.
   const std::vector< RecordedCall >& calls();

   // Returns the texts of the calls.
   std::vector< std::string > texts();

   // Returns the signals and replies of the test support, as in "JobRemoved 1 /path done".
   const std::vector< std::string >& said();

   // Discards everything recorded so far.
   void clear();

 private:
   void collect();
   void add( sd_bus_message* message, const std::string& text );

   BusPtr marker_;
   BusPtr monitor_;
   std::vector< RecordedCall > calls_;
   std::vector< std::string > said_;
   std::set< std::string > supporters_;
   unsigned marks_ = 0;
};

} // namespace SodrelTest
