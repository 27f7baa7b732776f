// The library, with the traces that its environment enables.
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

void clientRestart( const char* unit ) {
   static_cast< void >( systemd->managerCallSsO( "RestartUnit", unit, "replace", false ) );
}

void clientReloadManager() {
   systemd->managerCall( "Reload", false );
}

void clientReloadUnit( const char* unit ) {
   static_cast< void >( systemd->managerCallSsO( "ReloadUnit", unit, "replace", false ) );
}
