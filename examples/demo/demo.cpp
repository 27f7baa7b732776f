// Shows the main uses of the library step by step; scripts/demo provides a systemd to talk to.
//
//    demo box          on a fresh systemd with the units beside this file
//    demo scripted     on a manager that imitates systemd
//    demo read-only    on this machine's own systemd, which it does not change
#include "Report.h"

#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <systemd/sd-bus.h>

namespace {

using Demo::Report;

using Client = Tessel::Ptr< Sodrel::Sdbus >;

constexpr const char* job = "/org/freedesktop/systemd1/job/*";
constexpr const char* returned = "returned";

std::string text( const Tessel::String& string ) {
   return std::string( std::string_view( string ) );
}

Client connect( Report& report ) {
   Client systemd;
   report.chapter(
      "A client of systemd",
      "It connects to the system bus and reads \"SystemState\" to check that systemd "
      "replies." );
   report.step( "systemd = sdbusFactory()", "a connected client", [&] {
      systemd = Sodrel::sdbusFactory();
      return "a connected client";
   } );
   if( systemd ) {
      report.step( "systemd->managerPropertyS( \"SystemState\" )", "*", [&] {
         return text( systemd->managerPropertyS( "SystemState" ) );
      } );
      report.step( "systemd->managerPropertyS( \"Version\" )", "*", [&] {
         return text( systemd->managerPropertyS( "Version" ) );
      } );
      report.step( "systemd->managerPropertyB( \"ServiceWatchdogs\" )", "*", [&] {
         return systemd->managerPropertyB( "ServiceWatchdogs" ) ? "true" : "false";
      } );
   }
   return systemd;
}

// Reads a unit's state. Here and below, the text of a call stands next to the call.
void readState( Report& report, const Client& systemd, const char* unit, const char* expected ) {
   const std::string call =
      std::string( "systemd->unitPropertyS( \"" ) + unit + "\", \"ActiveState\" )";
   report.step( call.c_str(), expected, [&] {
      return text( systemd->unitPropertyS( unit, "ActiveState" ) );
   } );
}

// Calls a unit method and waits for its outcome.
void callUnit(
   Report& report, const Client& systemd, const char* method, const char* unit,
   const char* expected ) {
   const std::string call = std::string( "systemd->managerCallSsO( \"" ) + method + "\", \"" +
                            unit + "\", \"replace\", false )";
   report.step( call.c_str(), expected, [&] {
      return text( systemd->managerCallSsO( method, unit, "replace", false ) );
   } );
}

// Calls a manager method without arguments.
void callManager(
   Report& report, const Client& systemd, const char* method, bool async, const char* expected ) {
   const std::string call = std::string( "systemd->managerCall( \"" ) + method + "\", " +
                            ( async ? "true" : "false" ) + " )";
   report.step( call.c_str(), expected, [&] {
      systemd->managerCall( method, async );
      return returned;
   } );
}

void startAndRestart( Report& report, const Client& systemd ) {
   report.chapter(
      "Jobs, followed to their end",
      "Each call queues a job and returns its path when the job has ended with \"done\"." );
   callUnit( report, systemd, "StartUnit", "web.service", job );
   readState( report, systemd, "web.service", "active" );
   callUnit( report, systemd, "RestartUnit", "web.service", job );
   callUnit( report, systemd, "StartUnit", "worker.service", job );
}

void reload( Report& report, const Client& systemd ) {
   report.chapter(
      "Reloads, followed to their end",
      "systemd reports reloads only while some client has subscribed. On many machines the login\n"
      "service has. Here no client has, so the demo subscribes, once per connection." );
   callManager( report, systemd, "Subscribe", true, returned );
   callManager( report, systemd, "Reload", false, returned );
   callUnit( report, systemd, "ReloadUnit", "web.service", job );
   callUnit( report, systemd, "ReloadOrRestartUnit", "worker.service", job );
}

void refuse( Report& report, const Client& systemd ) {
   callUnit(
      report, systemd, "ReloadOrTryRestartUnit", "web.service",
      "Sodrel::SdbusSyncException: Sdbus::managerCallSsO, method ReloadOrTryRestartUnit doesn't "
      "support sync operations" );
   readState(
      report, systemd, "nosuch.service",
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSO, sd-bus call GetUnit nosuch.service "
      "failed: Unit nosuch.service not loaded." );
}

void fail( Report& report, const Client& systemd ) {
   report.chapter(
      "Errors",
      "A job that fails, a unit that cannot reload, a method without an outcome to wait for, an\n"
      "unknown unit: the class names the stage, the text the cause." );
   callUnit(
      report, systemd, "StartUnit", "broken.service",
      "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job /org/freedesktop/systemd1/job/* "
      "result: failed" );
   callUnit(
      report, systemd, "ReloadUnit", "worker.service",
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, sd-bus call ReloadUnit "
      "worker.service replace failed: Job type reload is not applicable for unit worker.service." );
   refuse( report, systemd );
}

void loseTheBus( Report& report, const Client& systemd, bool inBox ) {
   report.chapter(
      "A lost connection",
      "The next call notices, opens a new one and continues. Its traces are shown." );
   if( inBox ) {
      report.step( "$ systemctl restart dbus.service", "exit status 0", [] {
         return "exit status " + std::to_string( std::system( "systemctl restart dbus.service" ) );
      } );
   } else {
      report.step( "sd_bus_close( systemd->sdbus() )", returned, [&] {
         sd_bus_close( systemd->sdbus() );
         return returned;
      } );
   }
   report.tracesAre( true );
   callUnit( report, systemd, "RestartUnit", "worker.service", job );
   report.tracesAre( false );

   report.chapter(
      "After the reconnection",
      "The subscription ended with the old connection, so the demo subscribes again." );
   callManager( report, systemd, "Subscribe", true, returned );
   callManager( report, systemd, "Reload", false, returned );
   callUnit( report, systemd, "StopUnit", "web.service", job );
}

void readOnly( Report& report, const Client& systemd ) {
   report.chapter(
      "Properties of a unit, and what is refused", "None of these calls changes anything." );
   readState( report, systemd, "init.scope", "active" );
   refuse( report, systemd );
}

} // namespace

int main( int argc, char** argv ) {
   const std::string_view on = argc == 2 ? argv[1] : "";
   if( on != "box" && on != "scripted" && on != "read-only" ) {
      std::fprintf( stderr, "usage: %s box|scripted|read-only\n", argv[0] );
      return 2;
   }
   Report report;
   if( const Client systemd = connect( report ); !systemd ) {
      return report.finish();
   } else if( on == "read-only" ) {
      readOnly( report, systemd );
   } else {
      startAndRestart( report, systemd );
      reload( report, systemd );
      fail( report, systemd );
      loseTheBus( report, systemd, on == "box" );
   }
   return report.finish();
}
