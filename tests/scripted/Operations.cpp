// The operations of the library with their golden sequences.
#include <scripted/Operations.h>

#include <scripted/Unlucky.h>
#include <support/ScriptedMemory.h>

namespace SodrelTest {

namespace {

// Made beforehand, so that only the library allocates.
const Tessel::String reload( "Reload" );
const Tessel::String subscribe( "Subscribe" );
const Tessel::String getUnit( "GetUnit" );
const Tessel::String frob( "Frob" );
const Tessel::String startUnit( "StartUnit" );
const Tessel::String reloadUnit( "ReloadUnit" );
const Tessel::String reloadOrRestartUnit( "ReloadOrRestartUnit" );
const Tessel::String reloadOrTryRestartUnit( "ReloadOrTryRestartUnit" );
const Tessel::String foo( "foo.service" );
const Tessel::String replace( "replace" );
const Tessel::String version( "Version" );
const Tessel::String confirmSpawn( "ConfirmSpawn" );
const Tessel::String activeStateName( "ActiveState" );
const Tessel::String text( "What the caller did" );

Tessel::String shown( bool value ) {
   return value ? "true" : "false";
}

sd_bus_message* pathReply() {
   const NotLibrary notLibrary;
   return scriptedSdbus().newReply( o( fooPath ) );
}

sd_bus_message* booleanReply() {
   const NotLibrary notLibrary;
   return scriptedSdbus().newReply( b( true ) );
}

// Signals in one pass after the other.
void passes( std::initializer_list< Signal > signals ) {
   for( const Signal& signal : signals ) {
      scriptedSdbus().next( "sd_bus_process", dispatches( { signal } ) );
      scriptedSdbus().next( "sd_bus_process", {} );
   }
}

void jobIsDone() {
   passes( { jobRemoved( 41, "failed" ), jobRemoved( 42, "done" ) } );
}

void jobFails() {
   passes( { jobRemoved( 41, "done" ), jobRemoved( 42, "failed" ) } );
}

void managerReloads() {
   passes( { reloading( true ), reloading( false ) } );
}

// Nothing is seen of the first start.
void managerReloadsAgain() {
   passes( { reloading( false ) } );
   managerReloads();
}

void unitReloads() {
   const Content running = property( "SubState", variant( "s", s( "running" ) ) );
   passes( { unitBecomes( "reloading" ),
             unitChanged( properties( { running, activeState( "active" ) } ) ) } );
}

void secondWaitSucceeds() {
   unluckyWaits = { false, true };
   for( const char* const job : { "43", "44" } ) {
      scriptedSdbus().next(
         "sd_bus_call_method",
         replies( o( std::string( "/org/freedesktop/systemd1/job/" ) + job ) ) );
   }
}

void secondReloadSucceeds() {
   scriptedSdbus().next( "sd_bus_call_method", replies( o( fooPath ) ) );
   secondWaitSucceeds();
}

Steps called( const char* operation, const std::string& words ) {
   return traced( operation, "Call sd-bus systemd manager " + words );
}

// The wait of an unlucky monitor.
Steps unluckyWait( const char* number ) {
   return { { std::string( "wait( /org/freedesktop/systemd1/job/" ) + number + " )" } };
}

// A call that waits for a job.
Steps jobAwaited( const char* operation, const std::string& words ) {
   const Steps read = signalRead( jobRemovedMonitor );
   return join( {
      called( operation, words + ", async=false" ),
      probed(),
      begun( jobRemovedMonitor ),
      sent( words ),
      waited( jobRemovedMonitor, { read, read } ),
      ended( jobRemovedMonitor ),
   } );
}

// A call that is repeated because its first wait fails.
Steps jobAwaitedAgain( const char* operation, const std::string& words ) {
   return join( {
      called( operation, words + ", async=false" ),
      probed(),
      begun( jobRemovedMonitor ),
      sent( words, 1 ),
      unluckyWait( "43" ),
      sent( words, 2 ),
      unluckyWait( "44" ),
      ended( jobRemovedMonitor ),
   } );
}

const std::string managerObject = "/org/freedesktop/systemd1, org.freedesktop.systemd1.Manager";
const std::string fooObject = std::string( fooPath ) + ", org.freedesktop.systemd1.Unit";

const Steps messageDropped{ { "sd_bus_message_unref( message1 )" } };

Steps messageRead( const char* type, const std::string& exception ) {
   return join( {
      { { std::string( "sd_bus_message_read( message1, " ) + type + " )",
          Failing::reported,
          "Sodrel::SdbusMessageException: " + exception + "{errno}",
          { "sd_bus_message_unref( message1 )" } } },
      messageDropped,
   } );
}

std::vector< Operation > makeOperations() {
   const Steps aReloadRead = signalRead( daemonReloadingMonitor );
   return {
      // Deliberately, the connection of a client that cannot be made stays open.
      { "sdbusFactory", "made",
        []( Sdbus& ) { return Tessel::String( Sodrel::sdbusFactory() ? "made" : "null" ); },
        join( {
           traced( "handleInitialized", "Initialize sd-bus" ),
           traced( "managerPropertyS", "Get SystemState manager property with sd-bus" ),
           {
              { "sd_bus_get_property_string( null, org.freedesktop.systemd1, " + managerObject +
                   ", SystemState, null, value )",
                Failing::ignored, noBus },
              { "sd_bus_open_system( bus )",
                Failing::reported,
                noBus,
                { "slabFree( Sodrel::Sdbus )" } },
           },
           stringRead(
              managerObject, "SystemState",
              "managerPropertyS, manager property SystemState read failed", "bus2",
              { "slabFree( Sodrel::Sdbus )" } ),
           {
              { "Sodrel/9 handleInitialized: SystemState running" },
              { "Sodrel/8 handleDeleted: Deinitialize sd-bus" },
              { "sd_bus_flush_close_unref( bus2 )" },
              { "slabFree( Sodrel::Sdbus )" },
           },
        } ) },
      { "sdbus", "true", []( Sdbus& client ) { return shown( client.sdbus() ); }, probed() },
      { "managerPropertyS", "running",
        []( Sdbus& client ) { return client.managerPropertyS( version ); },
        join( {
           traced( "managerPropertyS", "Get Version manager property with sd-bus" ),
           probed(),
           stringRead(
              managerObject, "Version", "managerPropertyS, manager property Version read failed" ),
        } ) },
      { "managerPropertyB", "true",
        []( Sdbus& client ) { return shown( client.managerPropertyB( confirmSpawn ) ); },
        join( {
           traced( "managerPropertyB", "Get ConfirmSpawn manager property with sd-bus" ),
           probed(),
           {
              { "sd_bus_get_property( bus1, org.freedesktop.systemd1, " + managerObject +
                   ", ConfirmSpawn, error, reply, b )",
                Failing::reported,
                "Sodrel::SdbusCallException: "
                "Sdbus::managerPropertyB, manager property ConfirmSpawn read failed{message}",
                { "sd_bus_error_free( {error} )" } },
              { "sd_bus_error_free( empty )" },
           },
           messageRead(
              "b", "Sdbus::managerPropertyB, message handling failed for property ConfirmSpawn" ),
        } ) },
      // The trace names the property before the unit.
      { "unitPropertyS", "running",
        []( Sdbus& client ) { return client.unitPropertyS( foo, activeStateName ); },
        join( {
           traced( "unitPropertyS", "Get ActiveState property of foo.service with sd-bus" ),
           sent( "GetUnit foo.service" ),
           probed(),
           stringRead(
              fooObject, "ActiveState",
              "unitPropertyS, read failed for property ActiveState of foo.service" ),
        } ) },

      { "asyncManagerCall", "returned",
        []( Sdbus& client ) {
           client.asyncManagerCall( reload );
           return Tessel::String( "returned" );
        },
        sent( "Reload" ) },
      { "asyncManagerCallSO", fooPath,
        []( Sdbus& client ) { return client.asyncManagerCallSO( getUnit, foo ); },
        sent( "GetUnit foo.service" ) },
      { "asyncManagerCallSsO", jobPath,
        []( Sdbus& client ) { return client.asyncManagerCallSsO( startUnit, foo, replace ); },
        sent( "StartUnit foo.service replace" ) },

      { "managerCallAsynchronous", "returned",
        []( Sdbus& client ) {
           client.managerCall( subscribe, true );
           return Tessel::String( "returned" );
        },
        join( { called( "managerCall", "Subscribe, async=true" ), sent( "Subscribe" ) } ) },
      { "managerCall", "returned",
        []( Sdbus& client ) {
           client.managerCall( reload, false );
           return Tessel::String( "returned" );
        },
        join( {
           called( "managerCall", "Reload, async=false" ),
           probed(),
           begun( daemonReloadingMonitor ),
           sent( "Reload" ),
           waited( daemonReloadingMonitor, { aReloadRead, aReloadRead } ),
           ended( daemonReloadingMonitor ),
        } ),
        managerReloads },
      { "managerCallRepeated", "returned",
        []( Sdbus& client ) {
           client.managerCall( reload, false );
           return Tessel::String( "returned" );
        },
        join( {
           called( "managerCall", "Reload, async=false" ),
           probed(),
           begun( daemonReloadingMonitor ),
           sent( "Reload", 1 ),
           waited( daemonReloadingMonitor, { aReloadRead } ),
           sent( "Reload", 2 ),
           waited( daemonReloadingMonitor, { aReloadRead, aReloadRead } ),
           ended( daemonReloadingMonitor ),
        } ),
        managerReloadsAgain },
      { "managerCallRefused",
        "Sodrel::SdbusSyncException: "
        "Sdbus::managerCall, method Subscribe doesn't support sync operations",
        []( Sdbus& client ) {
           client.managerCall( subscribe, false );
           return Tessel::String( "returned" );
        },
        join( { called( "managerCall", "Subscribe, async=false" ), probed() } ) },

      { "managerCallSOAsynchronous", fooPath,
        []( Sdbus& client ) { return client.managerCallSO( getUnit, foo, true ); },
        join( {
           called( "managerCallSO", "GetUnit foo.service, async=true" ),
           sent( "GetUnit foo.service" ),
        } ) },
      { "managerCallSO", jobPath,
        []( Sdbus& client ) { return client.managerCallSO( reloadUnit, foo, false ); },
        jobAwaited( "managerCallSO", "ReloadUnit foo.service" ), jobIsDone },
      { "managerCallSORepeated", "/org/freedesktop/systemd1/job/44",
        []( Sdbus& client ) { return client.managerCallSO( frob, foo, false ); },
        jobAwaitedAgain( "managerCallSO", "Frob foo.service" ), secondWaitSucceeds },
      // There is no job to wait for.
      { "managerCallSOOfAUnit", fooPath,
        []( Sdbus& client ) { return client.managerCallSO( getUnit, foo, false ); },
        join( {
           called( "managerCallSO", "GetUnit foo.service, async=false" ),
           probed(),
           begun( jobRemovedMonitor ),
           sent( "GetUnit foo.service" ),
           { { std::string( "SignalMonitor/8 wait: Wait for JobRemoved signal of " ) + fooPath } },
           ended( jobRemovedMonitor ),
        } ) },

      { "managerCallSsOAsynchronous", jobPath,
        []( Sdbus& client ) {
           return client.managerCallSsO( reloadOrTryRestartUnit, foo, replace, true );
        },
        join( {
           called( "managerCallSsO", "ReloadOrTryRestartUnit foo.service replace, async=true" ),
           sent( "ReloadOrTryRestartUnit foo.service replace" ),
        } ) },
      { "managerCallSsO", jobPath,
        []( Sdbus& client ) { return client.managerCallSsO( startUnit, foo, replace, false ); },
        jobAwaited( "managerCallSsO", "StartUnit foo.service replace" ), jobIsDone },
      { "managerCallSsOOfAJobThatFails",
        "Sodrel::SdbusJobException: "
        "JobRemovedMonitor::wait, job /org/freedesktop/systemd1/job/42 result: failed",
        []( Sdbus& client ) { return client.managerCallSsO( startUnit, foo, replace, false ); },
        jobAwaited( "managerCallSsO", "StartUnit foo.service replace" ), jobFails },
      { "managerCallSsORepeated", "/org/freedesktop/systemd1/job/44",
        []( Sdbus& client ) { return client.managerCallSsO( startUnit, foo, replace, false ); },
        jobAwaitedAgain( "managerCallSsO", "StartUnit foo.service replace" ), secondWaitSucceeds },
      { "managerCallSsOReloadingAUnit", jobPath,
        []( Sdbus& client ) { return client.managerCallSsO( reloadUnit, foo, replace, false ); },
        join( {
           called( "managerCallSsO", "ReloadUnit foo.service replace, async=false" ),
           probed(),
           sent( "GetUnit foo.service", 1 ),
           begun( unitReloadingMonitor ),
           sent( "ReloadUnit foo.service replace", 2 ),
           waited(
              unitReloadingMonitor,
              { changeRead( { "ActiveState" } ), changeRead( { "SubState", "ActiveState" } ) } ),
           ended( unitReloadingMonitor ),
        } ),
        unitReloads },
      // The unit is asked for once only.
      { "managerCallSsOReloadingAUnitRepeated", "/org/freedesktop/systemd1/job/44",
        []( Sdbus& client ) {
           return client.managerCallSsO( reloadOrRestartUnit, foo, replace, false );
        },
        join( {
           called( "managerCallSsO", "ReloadOrRestartUnit foo.service replace, async=false" ),
           probed(),
           sent( "GetUnit foo.service", 1 ),
           begun( unitReloadingMonitor ),
           sent( "ReloadOrRestartUnit foo.service replace", 2 ),
           unluckyWait( "43" ),
           sent( "ReloadOrRestartUnit foo.service replace", 3 ),
           unluckyWait( "44" ),
           ended( unitReloadingMonitor ),
        } ),
        secondReloadSucceeds },
      { "managerCallSsORefused",
        "Sodrel::SdbusSyncException: Sdbus::managerCallSsO, method ReloadOrTryRestartUnit "
        "doesn't support sync operations",
        []( Sdbus& client ) {
           return client.managerCallSsO( reloadOrTryRestartUnit, foo, replace, false );
        },
        join( {
           called( "managerCallSsO", "ReloadOrTryRestartUnit foo.service replace, async=false" ),
           probed(),
        } ) },

      { "handleSdbusMessage", "returned",
        []( Sdbus& client ) {
           client.handleSdbusMessage( booleanReply() );
           return Tessel::String( "returned" );
        },
        messageDropped },
      { "handleSdbusMessageO", fooPath,
        []( Sdbus& client ) { return client.handleSdbusMessageO( pathReply(), text ); },
        messageRead( "o", "What the caller did" ) },
      { "handleSdbusMessageB", "true",
        []( Sdbus& client ) { return shown( client.handleSdbusMessageB( booleanReply(), text ) ); },
        messageRead( "b", "What the caller did" ) },
   };
}

} // namespace

const std::vector< Operation >& operations() {
   static const std::vector< Operation > all = makeOperations();
   return all;
}

} // namespace SodrelTest
