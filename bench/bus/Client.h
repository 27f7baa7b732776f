// The interface of a client of the comparison, and the helpers that ClientMain.c provides.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MANAGER "org.freedesktop.systemd1"
#define MANAGER_PATH "/org/freedesktop/systemd1"
#define MANAGER_INTERFACE "org.freedesktop.systemd1.Manager"
#define UNIT_INTERFACE "org.freedesktop.systemd1.Unit"
#define PROPERTIES_INTERFACE "org.freedesktop.DBus.Properties"

// Connect, and close the connection.
void clientOpen( void );
void clientClose( void );

// Read the manager's property SystemState, and a unit's ActiveState.
void clientReadManager( void );
void clientReadUnit( const char* unit );

// Restarts a unit and waits until the job is done.
void clientRestart( const char* unit );

// Reloads the manager and waits until it signals the end of the reload.
void clientReloadManager( void );

// Reloads a unit and waits until it is active again.
void clientReloadUnit( const char* unit );

// Prints what failed and why, and exits.
#ifdef __cplusplus
[[noreturn]]
#else
_Noreturn
#endif
void fail( const char* what, const char* why );

// Returns the id of the job with this object path.
uint32_t jobOf( const char* path );

// The state of a client's wait, updated by each signal.
struct Awaited {
   uint32_t job;
   bool started;
   bool ended;
};

// The wait for a job ends with the job's own signal. Fails unless the job is done.
void jobRemoved( struct Awaited* awaited, uint32_t job, const char* result );

// The wait for the manager's reload ends when an end follows a start.
void reloadSeen( struct Awaited* awaited, bool running );

// The wait for a unit's reload ends when "active" follows "reloading" or "activating".
void stateSeen( struct Awaited* awaited, const char* state );

#ifdef __cplusplus
}
#endif
