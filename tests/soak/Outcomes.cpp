// The forms of the exceptions' texts.
#include "Outcomes.h"

#include <regex>
#include <vector>

namespace Sodrel::Soak {

namespace {

struct Form {
   Outcome outcome;
   const char* name;
   std::regex text;
};

const std::vector< Form >& forms() {
   static const std::vector< Form > forms{
      { Outcome::noBus, "Sodrel::NoSdbusException",
        std::regex( "Sdbus::sdbus, failed to initialize sd-bus: .+" ) },
      { Outcome::call, "Sodrel::SdbusCallException",
        std::regex( "Sdbus::("
                    "managerPropertyS, manager property \\w+ read failed|"
                    "unitPropertyS, read failed for property \\w+ of \\S+|"
                    "asyncManagerCall, sd-bus call \\w+ failed|"
                    "asyncManagerCallSO, sd-bus call \\w+ \\S+ failed|"
                    "asyncManagerCallSsO, sd-bus call \\w+ \\S+ \\w+ failed)"
                    "(: [^]*)?" ) },
      { Outcome::message, "Sodrel::SdbusMessageException",
        std::regex( "Sdbus::asyncManagerCall(SO|SsO), message read failed when calling .+: .+" ) },
      { Outcome::job, "Sodrel::SdbusJobException",
        std::regex( "JobRemovedMonitor::wait, job /org/freedesktop/systemd1/job/[0-9]+ result: "
                    "(failed|canceled|timeout|dependency|invalid|assert|unsupported|collected|once|"
                    "frozen|concurrency)" ) },
      { Outcome::sync, "Sodrel::SdbusSyncException",
        std::regex(
           "(JobRemoved|DaemonReloading|UnitReloading)Monitor::("
           "wait, sd_bus_(process|wait) failed: .+|"
           "handleInitialized, failed to register (JobRemoved|Reloading|PropertiesChanged) "
           "monitor( for /\\S+)?: .+)|"
           "UnitReloadingMonitor::wait, unit /\\S+ failed: Success" ) },
   };
   return forms;
}

} // namespace

// No time-out counts as documented here: the bus dies much sooner than after 600 s.
Outcome outcomeOf( const std::string& name, const std::string& text ) {
   for( const Form& form : forms() ) {
      if( name == form.name && std::regex_match( text, form.text ) ) {
         return form.outcome;
      }
   }
   return Outcome::undocumented;
}

} // namespace Sodrel::Soak
