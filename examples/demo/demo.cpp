// Shows the main uses of the library, step by step; scripts/demo gives it a systemd to talk to.
//
//    demo box          on a fresh systemd with the units beside this file
//    demo scripted     on a manager that imitates systemd
//    demo read-only    on this machine's own systemd, which it leaves as it is
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
      "It opens the system bus and reads \"SystemState\", to see that systemd "
      "answers." );
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

// Reads a unit's state. The call's text and what is done stand side by side here as below.
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

// Calls a manager method that takes nothing.
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
      "Jobs, followed to their ends",
      "Each call queues a job and returns its path when the job has ended with \"done\"." );
   callUnit( report, systemd, "StartUnit", "web.service", job );
   readState( report, systemd, "web.service", "active" );
   callUnit( report, systemd, "RestartUnit", "web.service", job );
   callUnit( report, systemd, "StartUnit", "worker.service", job );
}

void reload( Report& report, const Client& systemd ) {
   report.chapter(
      "Reloads, followed to their ends",
      "systemd tells of reloads only while some client of the bus has subscribed. On many "
      "machines\n"
      "the login service has; nobody has here, so that the demo does it, once per connection." );
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
      "What goes wrong is said",
      "A job that fails, a reload that the unit has no way to do, a method that has no outcome to\n"
      "wait for, a unit that nobody knows: the class says at which stage, the text why." );
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
      "A connection that is lost",
      "The next call finds it out, opens a new one and goes on. Its traces are shown." );
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
      "Carrying on",
      "The subscription went with the old connection, so that the demo subscribes again." );
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
