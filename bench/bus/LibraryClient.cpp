// The library, with what its environment turns on.
#include "Client.h"

#include <Sodrel/Sodrel.h>

static Tessel::Ptr< Sodrel::Sdbus > systemd;

void clientOpen() {
   systemd = Sodrel::sdbusFactory();
}

void clientClose() {
   systemd = nullptr;
}

void clientReadManager() {
   static_cast< void >( systemd->managerPropertyS( "SystemState" ) );
}

void clientReadUnit( const char* unit ) {
   static_cast< void >( systemd->unitPropertyS( unit, "ActiveState" ) );
}

void clientFollowJob( const char* method, const char* unit ) {
   static_cast< void >( systemd->managerCallSsO( method, unit, "replace", false ) );
}

void clientFollowDaemonReload() {
   systemd->managerCall( "Reload", false );
}

void clientFollowUnitReload( const char* unit ) {
   static_cast< void >( systemd->managerCallSsO( "ReloadUnit", unit, "replace", false ) );
}
