// The documented texts of the exceptions.
#include "Client.h"

#include <regex>

namespace SodrelTest {

// Timeouts do not count as documented: the bus dies long before 600 s have passed.
Outcome outcomeOf( const std::string& name, const std::string& text ) {
   static const std::pair< Outcome, std::regex > documented[] = {
      { Outcome::noBus,
        std::regex( "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus: .+" ) },
      { Outcome::call, std::regex( "Sodrel::SdbusCallException: Sdbus::("
                                   "managerPropertyS, manager property \\w+ read failed|"
                                   "unitPropertyS, read failed for property \\w+ of \\S+|"
                                   "asyncManagerCall, sd-bus call \\w+ failed|"
                                   "asyncManagerCallSO, sd-bus call \\w+ \\S+ failed|"
                                   "asyncManagerCallSsO, sd-bus call \\w+ \\S+ \\w+ failed)"
                                   "(: [^]*)?" ) },
      { Outcome::message,
        std::regex( "Sodrel::SdbusMessageException: Sdbus::asyncManagerCall(SO|SsO), message read "
                    "failed when calling .+: .+" ) },
      { Outcome::job,
        std::regex( "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job "
                    "/org/freedesktop/systemd1/job/[0-9]+ result: "
                    "(failed|canceled|timeout|dependency|invalid|assert|unsupported|collected|once|"
                    "frozen|concurrency)" ) },
      { Outcome::sync,
        std::regex(
           "Sodrel::SdbusSyncException: ("
           "(JobRemoved|DaemonReloading|UnitReloading)Monitor::("
           "wait, sd_bus_(process|wait) failed: .+|"
           "handleInitialized, failed to register (JobRemoved|Reloading|PropertiesChanged) "
           "monitor( for /\\S+)?: .+)|"
           "UnitReloadingMonitor::wait, unit /\\S+ failed: Success)" ) },
   };
   for( const auto& [outcome, form] : documented ) {
      if( std::regex_match( name + ": " + text, form ) ) {
         return outcome;
      }
   }
   return Outcome::undocumented;
}

} // namespace SodrelTest
