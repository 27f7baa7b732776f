// The operations of the library and what comes of each failing sd-bus call.
#include <scripted/Operations.h>

#include <Sodrel/SignalMonitor.h>
#include <scripted/Signals.h>
#include <support/ScriptedMemory.h>

namespace Sodrel::Test {

namespace {

// Made beforehand, so that only the library allocates.
const Tessel::String reload( "Reload" );
const Tessel::String version( "Version" );
const Tessel::String confirmSpawn( "ConfirmSpawn" );
const Tessel::String activeStateName( "ActiveState" );
const Tessel::String getUnit( "GetUnit" );
const Tessel::String startUnit( "StartUnit" );
const Tessel::String reloadUnit( "ReloadUnit" );
const Tessel::String reloadOrTryRestartUnit( "ReloadOrTryRestartUnit" );
const Tessel::String foo( "foo.service" );
const Tessel::String replace( "replace" );
const Tessel::String text( "What the caller did" );
const Orl::Optional< Tessel::String > awaitedJob( jobPath );
const Tessel::String pathOfFoo( fooPath );

// Exceptions.
#define NO_BUS "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus{errno}"
#define CALL "Sodrel::SdbusCallException: Sdbus::"
#define MESSAGE "Sodrel::SdbusMessageException: Sdbus::"
#define SYNC "Sodrel::SdbusSyncException: "
#define CALLBACK "::wait, callback handling failed"
#define PROCESS "::wait, sd_bus_process failed{errno}"
#define CLOSED "::wait, sd_bus_process failed: Connection reset by peer"
#define WAIT "::wait, sd_bus_wait failed{errno}"

#define GET_UNIT_FAILED CALL "asyncManagerCallSO, sd-bus call GetUnit foo.service failed{message}"
#define GET_UNIT_UNREAD                                                                            \
   MESSAGE "asyncManagerCallSO, message read failed when calling GetUnit foo.service{errno}"
#define START_FAILED                                                                               \
   CALL "asyncManagerCallSsO, sd-bus call StartUnit foo.service replace failed{message}"
#define START_UNREAD                                                                               \
   MESSAGE "asyncManagerCallSsO, message read failed when calling StartUnit foo.service "          \
           "replace{errno}"

#define OF_JOB " for /org/freedesktop/systemd1/job/42"

void nothing( ScriptedSdbus& ) {}

sd_bus_message* pathReply( ScriptedSdbus& script ) {
   const NotLibrary notLibrary;
   return script.newReply( o( fooPath ) );
}

// Two passes of a wait, with a wait for the second one.
void passes( ScriptedSdbus& script, const Signal& first, const Signal& second ) {
   for( const Signal& signal : { first, second } ) {
      script.next( "sd_bus_process", dispatches( { signal } ) );
      script.next( "sd_bus_process", {} );
   }
}

void jobIsDone( ScriptedSdbus& script ) {
   passes( script, jobRemoved( 41, "failed" ), jobRemoved( 42, "done" ) );
}

void managerReloads( ScriptedSdbus& script ) {
   passes( script, reloading( true ), reloading( false ) );
}

void unitReloads( ScriptedSdbus& script ) {
   passes(
      script, unitBecomes( "reloading" ),
      propertiesChanged(
         "org.freedesktop.systemd1.Unit",
         properties( { property( "SubState", variant( "s", s( "running" ) ) ),
                       activeState( "active" ) } ) ) );
}

// The calls that a wait makes when its signals come in two passes.
std::vector< Step > waitSteps( const char* process, const char* wait, const char* callback ) {
   return {
      { "sd_bus_process", process }, { "sd_bus_message_read", callback },
      { "sd_bus_process", process }, { "sd_bus_wait", wait },
      { "sd_bus_process", process }, { "sd_bus_message_read", callback },
      { "sd_bus_process", process },
   };
}

// The same for a unit, whose signals take more reading. Whether skipping a value and leaving a
// container succeed is of no interest.
std::vector< Step > unitWaitSteps() {
   const char* const callback = SYNC "UnitReloadingMonitor" CALLBACK;
   const char* const process = SYNC "UnitReloadingMonitor" PROCESS;
   const std::vector< Step > applied{
      { "sd_bus_message_enter_container", callback },
      { "sd_bus_message_read", callback },
      { "sd_bus_message_read", callback },
      { "sd_bus_message_exit_container", jobPath, callback },
   };
   std::vector< Step > steps{
      { "sd_bus_process", process },
      { "sd_bus_message_read", callback },
      { "sd_bus_message_enter_container", callback },
   };
   const auto add = [&steps]( const std::vector< Step >& more ) {
      steps.insert( steps.end(), more.begin(), more.end() );
   };
   add( applied );
   add( {
      { "sd_bus_message_enter_container", callback },
      // The last one of its signal: what fails next is the processing.
      { "sd_bus_message_exit_container", jobPath, process },
      { "sd_bus_process", process },
      { "sd_bus_wait", SYNC "UnitReloadingMonitor" WAIT },
      { "sd_bus_process", process },
      { "sd_bus_message_read", callback },
      { "sd_bus_message_enter_container", callback },
      { "sd_bus_message_enter_container", callback },
      { "sd_bus_message_read", callback },
      { "sd_bus_message_skip", jobPath, callback },
      { "sd_bus_message_exit_container", jobPath, callback },
   } );
   add( applied );
   add( {
      { "sd_bus_message_enter_container", callback },
      { "sd_bus_message_exit_container", jobPath, process },
      { "sd_bus_process", process },
   } );
   return steps;
}

std::vector< Step > join( std::vector< Step > first, const std::vector< Step >& second ) {
   first.insert( first.end(), second.begin(), second.end() );
   return first;
}

std::vector< Operation > makeOperations() {
   std::vector< Operation > all;

   all.push_back( {
      "sdbus",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) {
         return Tessel::String( client.sdbus() ? "open" : "null" );
      },
      "open",
      { { "probe", "open", NO_BUS } },
      false,
   } );

   all.push_back( {
      "managerPropertyS",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) { return client.managerPropertyS( version ); },
      "running",
      {
         { "probe", "running", NO_BUS },
         { "sd_bus_get_property_string",
           CALL "managerPropertyS, manager property Version read failed{message}" },
      },
      false,
   } );

   all.push_back( {
      "managerPropertyB",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) {
         return Tessel::String( client.managerPropertyB( confirmSpawn ) ? "true" : "false" );
      },
      "true",
      {
         { "probe", "true", NO_BUS },
         { "sd_bus_get_property",
           CALL "managerPropertyB, manager property ConfirmSpawn read failed{message}" },
         { "sd_bus_message_read",
           MESSAGE "managerPropertyB, message handling failed for property ConfirmSpawn{errno}" },
      },
      false,
   } );

   all.push_back( {
      "unitPropertyS",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) { return client.unitPropertyS( foo, activeStateName ); },
      "running",
      {
         { "probe", "running", NO_BUS },
         { "sd_bus_call_method", GET_UNIT_FAILED },
         { "sd_bus_message_read", GET_UNIT_UNREAD, GET_UNIT_UNREAD },
         { "probe", "running", NO_BUS },
         { "sd_bus_get_property_string",
           CALL "unitPropertyS, read failed for property ActiveState of foo.service{message}" },
      },
   } );

   all.push_back( {
      "asyncManagerCall",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) {
         client.asyncManagerCall( reload );
         return Tessel::String( "returned" );
      },
      "returned",
      {
         { "probe", "returned", NO_BUS },
         { "sd_bus_call_method", CALL "asyncManagerCall, sd-bus call Reload failed{message}" },
      },
      false,
   } );

   all.push_back( {
      "asyncManagerCallSO",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) { return client.asyncManagerCallSO( getUnit, foo ); },
      fooPath,
      {
         { "probe", fooPath, NO_BUS },
         { "sd_bus_call_method", GET_UNIT_FAILED },
         { "sd_bus_message_read", GET_UNIT_UNREAD },
      },
   } );

   all.push_back( {
      "asyncManagerCallSsO",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) {
         return client.asyncManagerCallSsO( startUnit, foo, replace );
      },
      jobPath,
      {
         { "probe", jobPath, NO_BUS },
         { "sd_bus_call_method", START_FAILED },
         { "sd_bus_message_read", START_UNREAD },
      },
   } );

   all.push_back( {
      "managerCallAsynchronous",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) {
         client.managerCall( reload, true );
         return Tessel::String( "returned" );
      },
      "returned",
      {
         { "probe", "returned", NO_BUS },
         { "sd_bus_call_method", CALL "asyncManagerCall, sd-bus call Reload failed{message}" },
      },
      false,
   } );

   all.push_back( {
      "managerCall",
      managerReloads,
      []( Sdbus& client, ScriptedSdbus& ) {
         client.managerCall( reload, false );
         return Tessel::String( "returned" );
      },
      "returned",
      join(
         {
            { "probe", "returned", NO_BUS },
            { "sd_bus_match_signal", SYNC "DaemonReloadingMonitor::handleInitialized, "
                                          "failed to register Reloading monitor{errno}" },
            { "probe", SYNC "DaemonReloadingMonitor" CLOSED, NO_BUS },
            { "sd_bus_call_method", CALL "asyncManagerCall, sd-bus call Reload failed{message}" },
         },
         waitSteps(
            SYNC "DaemonReloadingMonitor" PROCESS, SYNC "DaemonReloadingMonitor" WAIT,
            SYNC "DaemonReloadingMonitor" CALLBACK ) ),
   } );

   all.push_back( {
      "managerCallSO",
      jobIsDone,
      []( Sdbus& client, ScriptedSdbus& ) {
         return client.managerCallSO( reloadUnit, foo, false );
      },
      jobPath,
      join(
         {
            { "probe", jobPath, NO_BUS },
            { "sd_bus_match_signal", SYNC "JobRemovedMonitor::handleInitialized, "
                                          "failed to register JobRemoved monitor{errno}" },
            { "probe", SYNC "JobRemovedMonitor" CLOSED, NO_BUS },
            { "sd_bus_call_method",
              CALL "asyncManagerCallSO, sd-bus call ReloadUnit foo.service failed{message}" },
            { "sd_bus_message_read", MESSAGE "asyncManagerCallSO, message read failed when calling "
                                             "ReloadUnit foo.service{errno}" },
         },
         waitSteps(
            SYNC "JobRemovedMonitor" PROCESS, SYNC "JobRemovedMonitor" WAIT,
            SYNC "JobRemovedMonitor" CALLBACK OF_JOB ) ),
   } );

   all.push_back( {
      "managerCallSsO",
      jobIsDone,
      []( Sdbus& client, ScriptedSdbus& ) {
         return client.managerCallSsO( startUnit, foo, replace, false );
      },
      jobPath,
      join(
         {
            { "probe", jobPath, NO_BUS },
            { "sd_bus_match_signal", SYNC "JobRemovedMonitor::handleInitialized, "
                                          "failed to register JobRemoved monitor{errno}" },
            { "probe", SYNC "JobRemovedMonitor" CLOSED, NO_BUS },
            { "sd_bus_call_method", START_FAILED },
            { "sd_bus_message_read", START_UNREAD },
         },
         waitSteps(
            SYNC "JobRemovedMonitor" PROCESS, SYNC "JobRemovedMonitor" WAIT,
            SYNC "JobRemovedMonitor" CALLBACK OF_JOB ) ),
   } );

   all.push_back( {
      "managerCallSsOReloadingAUnit",
      unitReloads,
      []( Sdbus& client, ScriptedSdbus& ) {
         return client.managerCallSsO( reloadUnit, foo, replace, false );
      },
      jobPath,
      join(
         {
            { "probe", jobPath, NO_BUS },
            { "probe", jobPath, NO_BUS },
            { "sd_bus_call_method", GET_UNIT_FAILED },
            { "sd_bus_message_read", GET_UNIT_UNREAD },
            { "sd_bus_match_signal", SYNC "UnitReloadingMonitor::handleInitialized, "
                                          "failed to register PropertiesChanged monitor for "
                                          "/org/freedesktop/systemd1/unit/foo_2eservice{errno}" },
            { "probe", SYNC "UnitReloadingMonitor" CLOSED, NO_BUS },
            { "sd_bus_call_method",
              CALL "asyncManagerCallSsO, sd-bus call ReloadUnit foo.service replace "
                   "failed{message}" },
            { "sd_bus_message_read",
              MESSAGE "asyncManagerCallSsO, message read failed when calling "
                      "ReloadUnit foo.service replace{errno}" },
         },
         unitWaitSteps() ),
   } );

   all.push_back( {
      "managerCallSsORefused",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) {
         try {
            client.managerCallSsO( reloadOrTryRestartUnit, foo, replace, false );
         } catch( const SdbusSyncException& ) {
            return Tessel::String( "refused" );
         }
         return Tessel::String( "returned" );
      },
      "refused",
      { { "probe", "refused", NO_BUS } },
   } );

   all.push_back( {
      "handleSdbusMessageO",
      nothing,
      []( Sdbus& client, ScriptedSdbus& script ) {
         return client.handleSdbusMessageO( pathReply( script ), text );
      },
      fooPath,
      { { "sd_bus_message_read", "Sodrel::SdbusMessageException: What the caller did{errno}" } },
   } );

   all.push_back( {
      "jobRemovedMonitor",
      jobIsDone,
      []( Sdbus& client, ScriptedSdbus& ) {
         return Tessel::String(
            jobRemovedMonitorFactory( client.sdbus() )->wait( awaitedJob ) ? "true" : "false" );
      },
      "true",
      join(
         {
            { "probe", "true", NO_BUS },
            { "sd_bus_match_signal", SYNC "JobRemovedMonitor::handleInitialized, "
                                          "failed to register JobRemoved monitor{errno}" },
         },
         waitSteps(
            SYNC "JobRemovedMonitor" PROCESS, SYNC "JobRemovedMonitor" WAIT,
            SYNC "JobRemovedMonitor" CALLBACK OF_JOB ) ),
   } );

   all.push_back( {
      "unitReloadingMonitorFactory",
      nothing,
      []( Sdbus& client, ScriptedSdbus& ) {
         return Tessel::String(
            unitReloadingMonitorFactory( client.sdbus(), pathOfFoo ) ? "made" : "null" );
      },
      "made",
      {
         { "probe", "made", NO_BUS },
         { "sd_bus_match_signal", SYNC "UnitReloadingMonitor::handleInitialized, "
                                       "failed to register PropertiesChanged monitor for "
                                       "/org/freedesktop/systemd1/unit/foo_2eservice{errno}" },
      },
   } );

   return all;
}

} // namespace

const std::vector< Operation >& operations() {
   static const std::vector< Operation > all = makeOperations();
   return all;
}

} // namespace Sodrel::Test
