// What every client of the comparison offers; ClientMain.c measures it.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define MANAGER "org.freedesktop.systemd1"
#define MANAGER_PATH "/org/freedesktop/systemd1"
#define MANAGER_INTERFACE "org.freedesktop.systemd1.Manager"
#define UNIT_INTERFACE "org.freedesktop.systemd1.Unit"
#define PROPERTIES_INTERFACE "org.freedesktop.DBus.Properties"
#define JOB_PATH "/org/freedesktop/systemd1/job/"

#define TARGET "bench-nothing.target"
#define ONESHOT "bench-oneshot.service"
#define SERVICE "bench-runs.service"

// Connect, and release the connection.
void clientOpen( void );
void clientClose( void );

// Read the manager's property SystemState, or a unit's ActiveState.
void clientReadManager( void );
void clientReadUnit( const char* unit );

// Calls a unit method with the mode "replace", and waits until its job is done.
void clientFollowJob( const char* method, const char* unit );

// Reloads the manager, and waits until it says that it has.
void clientFollowDaemonReload( void );

// Reloads a unit, and waits until it is active again.
void clientFollowUnitReload( const char* unit );

#ifdef __cplusplus
}
#endif
