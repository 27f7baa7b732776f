// What the tests of the manager calls share: the lines that their parts leave in the log.
#pragma once

#include <scripted/ScriptedTest.h>
#include <scripted/Signals.h>

#include <string>

namespace Sodrel::Test {

class CallTest : public ClientTest {
 protected:
   // The lines that the call of a method leaves.
   static std::string
   sent( const char* operation, const char* method, const char* arguments, const char* message ) {
      const std::string reads =
         *arguments == 's' ? std::string( "sd_bus_message_read( " ) + message + ", o )\n" : "";
      return std::string( "Sodrel/8 " ) + operation + ": \n" + probed( "bus1" ) + "\n" +
             managerCall( "bus1", method, arguments ) + "\nsd_bus_error_free( empty )\n" + reads +
             "sd_bus_message_unref( " + message + " )";
   }
   static std::string lastPass() { return "sd_bus_process( bus1, null )\nsteady_clock::now()"; }
   const std::string jobMonitorBegins =
      "SignalMonitor/8 handleInitialized: "
      "Initialize JobRemovedMonitor\n" +
      matched( "bus1", managerPath, managerInterface, "JobRemoved" );
   const std::string jobMonitorEnds = "SignalMonitor/8 handleDeleted: "
                                      "Deinitialize JobRemovedMonitor\n"
                                      "sd_bus_slot_unref( slot1 )";
};

} // namespace Sodrel::Test
