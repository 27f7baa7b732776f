// The shim: C functions that wrap operations of the library. No exception escapes them.
#include "systemd.h"

#include <Sodrel/Sodrel.h>

#include <cstdio>
#include <exception>

struct Systemd {
   Tessel::Ptr< Sodrel::Sdbus > sdbus = Sodrel::sdbusFactory();
};

namespace {

thread_local char latestError[512];

// Returns whether the operation threw nothing.
template< typename Operation >
bool succeeds( const Operation& operation ) {
   try {
      operation();
      return true;
   } catch( const std::exception& error ) {
      std::snprintf( latestError, sizeof latestError, "%s", error.what() );
   } catch( ... ) {
      std::snprintf( latestError, sizeof latestError, "unknown exception" );
   }
   return false;
}

} // namespace

Systemd* systemdOpen() {
   Systemd* systemd = nullptr;
   succeeds( [&] { systemd = new Systemd; } );
   return systemd;
}

int systemdRestartUnit( Systemd* systemd, const char* unit ) {
   const bool restarted = succeeds(
      [&] { systemd->sdbus->managerCallSsO( "RestartUnit", unit, "replace", /*async*/ false ); } );
   return restarted ? 0 : -1;
}

void systemdClose( Systemd* systemd ) {
   delete systemd;
}

const char* systemdError() {
   return latestError;
}
