// The messages that each operation sends: which, with what, in what order, and no others.
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <support/PrivateBusRecord.h>

#include "LibraryFixture.h"

namespace Sodrel::Test {

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
   const char* name;
   std::function< void( Sdbus& ) > operation;
   std::vector< std::string > messages;

   friend void PrintTo( const Traffic& traffic, std::ostream* stream ) { *stream << traffic.name; }
};

class TheTraffic : public ALibraryClient, public testing::WithParamInterface< Traffic > {};

TEST_P( TheTraffic, ofAnOperationIsAsFewMessagesAsItNeeds ) {
   subscribe();
   manager.onEveryCall( "EnqueueMarkedJobs", { reply( jobPath( 5 ) ), jobRemoved( 5, "done" ) } );
   PrivateBusRecord record( bus );

   GetParam().operation( *client );

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
   { "sdbus", []( Sdbus& client ) { client.sdbus(); }, { probe } },
   { "managerPropertyS",
     []( Sdbus& client ) { client.managerPropertyS( "Version" ); },
     { probe, "Get org.freedesktop.systemd1.Manager Version" } },
   { "managerPropertyB",
     []( Sdbus& client ) { client.managerPropertyB( "ShowStatus" ); },
     { probe, "Get org.freedesktop.systemd1.Manager ShowStatus" } },
   { "unitPropertyS",
     []( Sdbus& client ) { client.unitPropertyS( "web.service", "ActiveState" ); },
     { probe, "GetUnit web.service", probe, "Get org.freedesktop.systemd1.Unit ActiveState" } },
   { "asyncManagerCall",
     []( Sdbus& client ) { client.asyncManagerCall( "Reload" ); },
     { probe, "Reload" } },
   { "asyncManagerCallSO",
     []( Sdbus& client ) { client.asyncManagerCallSO( "GetUnit", "web.service" ); },
     { probe, "GetUnit web.service" } },
   { "asyncManagerCallSsO",
     []( Sdbus& client ) { client.asyncManagerCallSsO( "StartUnit", "web.service", "fail" ); },
     { probe, "StartUnit web.service fail" } },
   { "managerCallAsync",
     []( Sdbus& client ) { client.managerCall( "Reload", true ); },
     { probe, "Reload" } },
   { "managerCallSOAsync",
     []( Sdbus& client ) { client.managerCallSO( "GetUnit", "web.service", true ); },
     { probe, "GetUnit web.service" } },
   { "managerCallSsOAsync",
     []( Sdbus& client ) {
        client.managerCallSsO( "ReloadOrTryRestartUnit", "web.service", "replace", true );
     },
     { probe, "ReloadOrTryRestartUnit web.service replace" } },
   { "managerCall",
     []( Sdbus& client ) { client.managerCall( "Reload", false ); },
     { probe, "Add" + reloadMatch, probe, "Reload", "Remove" + reloadMatch } },
   { "managerCallSO",
     []( Sdbus& client ) { client.managerCallSO( "EnqueueMarkedJobs", "x", false ); },
     { probe, "Add" + jobMatch, probe, "EnqueueMarkedJobs x", "Remove" + jobMatch } },
   // The path of a unit is no job: there is nothing to wait for.
   { "managerCallSOForAUnit",
     []( Sdbus& client ) { client.managerCallSO( "GetUnit", "web.service", false ); },
     { probe, "Add" + jobMatch, probe, "GetUnit web.service", "Remove" + jobMatch } },
   { "managerCallSsO",
     []( Sdbus& client ) {
        client.managerCallSsO( "RestartUnit", "web.service", "replace", false );
     },
     { probe, "Add" + jobMatch, probe, "RestartUnit web.service replace", "Remove" + jobMatch } },
   { "reloadUnit",
     []( Sdbus& client ) {
        client.managerCallSsO( "ReloadUnit", "web.service", "replace", false );
     },
     { probe, probe, "GetUnit web.service", "Add" + unitMatch, probe,
       "ReloadUnit web.service replace", "Remove" + unitMatch } },
   { "reloadOrRestartUnit",
     []( Sdbus& client ) {
        client.managerCallSsO( "ReloadOrRestartUnit", "web.service", "replace", false );
     },
     { probe, probe, "GetUnit web.service", "Add" + unitMatch, probe,
       "ReloadOrRestartUnit web.service replace", "Remove" + unitMatch } },
   { "refusedManagerCall",
     []( Sdbus& client ) {
        EXPECT_THROW( client.managerCall( "Reexecute", false ), SdbusSyncException );
     },
     { probe } },
   { "refusedManagerCallSsO",
     []( Sdbus& client ) {
        EXPECT_THROW(
           client.managerCallSsO( "ReloadOrTryRestartUnit", "web.service", "replace", false ),
           SdbusSyncException );
     },
     { probe } },
   { "creation", []( Sdbus& ) { EXPECT_TRUE( sdbusFactory() ); }, { probe } },
   { "emptyNames",
     []( Sdbus& client ) {
        EXPECT_THROW( client.asyncManagerCallSsO( "StartUnit", "", "" ), SdbusCallException );
     },
     { probe, "StartUnit  " } },
};

INSTANTIATE_TEST_SUITE_P(
   OfEach, TheTraffic, testing::ValuesIn( traffics ),
   []( const auto& traffic ) { return traffic.param.name; } );

} // namespace

} // namespace Sodrel::Test
