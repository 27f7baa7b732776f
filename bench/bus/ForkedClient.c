// A systemctl of its own for each operation.
#include "Client.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

static void run( char* const* command ) {
   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init( &actions );
   posix_spawn_file_actions_addopen( &actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0 );
   pid_t child = 0;
   int status = 0;
   const int spawned = posix_spawnp( &child, command[0], &actions, NULL, command, environ );
   posix_spawn_file_actions_destroy( &actions );
   if( spawned != 0 || waitpid( child, &status, 0 ) < 0 || status != 0 ) {
      fprintf( stderr, "%s failed\n", command[0] );
      exit( 1 );
   }
}

#define RUN( ... ) run( ( char* const[] ){ __VA_ARGS__, NULL } )

void clientOpen( void ) {}

void clientClose( void ) {}

void clientReadManager( void ) {
   RUN( "systemctl", "show", "--property=SystemState", "--value" );
}

void clientReadUnit( const char* unit ) {
   RUN( "systemctl", "show", "--property=ActiveState", "--value", (char*)unit );
}

void clientFollowJob( const char* method, const char* unit ) {
   char* const verb = strcmp( method, "StartUnit" ) == 0  ? "start"
                      : strcmp( method, "StopUnit" ) == 0 ? "stop"
                                                          : "restart";
   RUN( "systemctl", verb, (char*)unit );
}

void clientFollowDaemonReload( void ) {
   RUN( "systemctl", "daemon-reload" );
}

void clientFollowUnitReload( const char* unit ) {
   RUN( "systemctl", "reload", (char*)unit );
}
