/* What a C program sees of the library: as much as it needs, and no exception. */
#ifndef SYSTEMD_SHIM_H
#define SYSTEMD_SHIM_H

#ifdef __cplusplus
extern "C" {
#endif

struct Systemd;

/* Returns null on failure. Create one and keep it: it renews its connection by itself. Each is for
   one thread at a time. */
struct Systemd* systemdOpen( void );
/* Waits until systemd has restarted the unit. Returns 0, or -1 on failure. */
int systemdRestartUnit( struct Systemd* systemd, const char* unit );
void systemdClose( struct Systemd* systemd );

/* Says why the latest call of this thread failed. Valid until its next failure. */
const char* systemdError( void );

#ifdef __cplusplus
}
#endif

#endif
