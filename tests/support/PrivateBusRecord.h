// What has been called on a private bus, in the order of the wire.
#pragma once

#include <set>
#include <string>
#include <vector>

#include <support/BusPointers.h>
#include <support/PrivateBus.h>

namespace Sodrel::Test {

// A method call: of the manager and its objects, or AddMatch or RemoveMatch of the bus itself.
struct RecordedCall {
   std::string sender;
   std::string path;
   // The member and its arguments with a blank before each, as in "StartUnit web.service replace"
   // or "Get org.freedesktop.systemd1.Manager SystemState".
   std::string text;
};

// Records all calls from its creation on; those of the test support itself are left out.
class PrivateBusRecord {
 public:
   explicit PrivateBusRecord( const PrivateBus& bus );

   // Returns what clients had sent before this was called, all since the creation. After the bus
   // has ended: what it had passed on until then.
   const std::vector< RecordedCall >& calls();

   // Returns the texts of the calls.
   std::vector< std::string > texts();

   // Forgets all that has been recorded.
   void clear();

 private:
   bool collectUntil( const std::string& mark );
   void add( sd_bus_message* message, const std::string& text );

   BusPtr marker;
   BusPtr monitor;
   std::vector< RecordedCall > recorded;
   std::set< std::string > supporters;
   unsigned marks = 0;
};

} // namespace Sodrel::Test
