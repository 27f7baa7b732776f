// The messages that each operation sends: exactly these, with these contents, in this order.
#include <ostream>
#include <string>

#include <support/PrivateBusRecord.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

const std::string probe = "Get org.freedesktop.systemd1.Manager SystemState";
const std::string webPath = "/org/freedesktop/systemd1/unit/web_2eservice";

std::string match( const std::string& path, const char* interface, const char* member ) {
   return "Match type='signal',sender='org.freedesktop.systemd1',path='" + path + "',interface='" +
          interface + "',member='" + member + "'";
}

const std::string jobMatch = match( managerPath, managerInterface, "JobRemoved" );
const std::string reloadMatch = match( managerPath, managerInterface, "Reloading" );
const std::string unitMatch = match( webPath, propertiesInterface, "PropertiesChanged" );

struct Traffic {
   std::string operation;
   Texts messages;

   friend void PrintTo( const Traffic& traffic, std::ostream* stream ) {
      *stream << traffic.operation;
   }
};

class TheTraffic : public ALibraryClient, public testing::WithParamInterface< Traffic > {};

TEST_P( TheTraffic, ofAnOperationIsLimitedToTheMessagesItNeeds ) {
   subscribe();
   manager.onEveryCall( "EnqueueMarkedJobs", { replyJob( 5 ), jobRemoved( 5, "done" ) } );
   PrivateBusRecord record( bus );

   outcomeOf( GetParam().operation );

   EXPECT_EQ( record.texts(), GetParam().messages );
   for( const RecordedCall& call : record.calls() ) {
      const bool ofTheUnit = call.text.starts_with( "Get org.freedesktop.systemd1.Unit " );
      const bool ofTheBus = call.text.find( "Match " ) != std::string::npos;
      EXPECT_EQ(
         call.path, ofTheBus    ? "/org/freedesktop/DBus"
                    : ofTheUnit ? webPath
                                : managerPath );
   }
}

const Traffic traffics[]{
   { "sdbus", { probe } },
   { "creation", { probe } },
   { "managerPropertyS Version", { probe, "Get org.freedesktop.systemd1.Manager Version" } },
   { "managerPropertyB ShowStatus", { probe, "Get org.freedesktop.systemd1.Manager ShowStatus" } },
   { "unitPropertyS web.service ActiveState",
     { probe, "GetUnit web.service", probe, "Get org.freedesktop.systemd1.Unit ActiveState" } },
   { "asyncManagerCall Reload", { probe, "Reload" } },
   { "asyncManagerCallSO GetUnit web.service", { probe, "GetUnit web.service" } },
   { "asyncManagerCallSsO StartUnit web.service fail", { probe, "StartUnit web.service fail" } },
   // The names are empty.
   { "asyncManagerCallSsO StartUnit", { probe, "StartUnit  " } },
   { "managerCall Reload async", { probe, "Reload" } },
   { "managerCallSO GetUnit web.service async", { probe, "GetUnit web.service" } },
   { "managerCallSsO ReloadOrTryRestartUnit web.service replace async",
     { probe, "ReloadOrTryRestartUnit web.service replace" } },
   { "managerCall Reload",
     { probe, "Add" + reloadMatch, probe, "Reload", "Remove" + reloadMatch } },
   { "managerCallSO EnqueueMarkedJobs x",
     { probe, "Add" + jobMatch, probe, "EnqueueMarkedJobs x", "Remove" + jobMatch } },
   // The path of a unit is not a job: there is nothing to wait for.
   { "managerCallSO GetUnit web.service",
     { probe, "Add" + jobMatch, probe, "GetUnit web.service", "Remove" + jobMatch } },
   { "managerCallSsO RestartUnit web.service replace",
     { probe, "Add" + jobMatch, probe, "RestartUnit web.service replace", "Remove" + jobMatch } },
   { "managerCallSsO ReloadUnit web.service replace",
     { probe, probe, "GetUnit web.service", "Add" + unitMatch, probe,
       "ReloadUnit web.service replace", "Remove" + unitMatch } },
   { "managerCallSsO ReloadOrRestartUnit web.service replace",
     { probe, probe, "GetUnit web.service", "Add" + unitMatch, probe,
       "ReloadOrRestartUnit web.service replace", "Remove" + unitMatch } },
   // These are refused.
   { "managerCall Reexecute", { probe } },
   { "managerCallSsO ReloadOrTryRestartUnit web.service replace", { probe } },
};

INSTANTIATE_TEST_SUITE_P(
   OfEach, TheTraffic, testing::ValuesIn( traffics ),
   []( const auto& traffic ) { return nameOf( traffic.param.operation ); } );

} // namespace

} // namespace SodrelTest
