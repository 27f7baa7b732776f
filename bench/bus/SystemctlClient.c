// Runs systemctl for each operation.
#include "Client.h"

#include <fcntl.h>
#include <spawn.h>
#include <stddef.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

static void run( char* const* command ) {
   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init( &actions );
   posix_spawn_file_actions_addopen( &actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0 );
   pid_t child = 0;
   int status = 0;
   if( posix_spawnp( &child, command[0], &actions, NULL, command, environ ) != 0 ||
       waitpid( child, &status, 0 ) < 0 || status != 0 ) {
      fail( command[0], command[1] );
   }
   posix_spawn_file_actions_destroy( &actions );
}

#define SYSTEMCTL( ... ) run( ( char* const[] ){ "systemctl", __VA_ARGS__, NULL } )

void clientOpen( void ) {}

void clientClose( void ) {}

void clientReadManager( void ) {
   SYSTEMCTL( "show", "--property=SystemState", "--value" );
}

void clientReadUnit( const char* unit ) {
   SYSTEMCTL( "show", "--property=ActiveState", "--value", (char*)unit );
}

void clientRestart( const char* unit ) {
   SYSTEMCTL( "restart", (char*)unit );
}

void clientReloadManager( void ) {
   SYSTEMCTL( "daemon-reload" );
}

void clientReloadUnit( const char* unit ) {
   SYSTEMCTL( "reload", (char*)unit );
}
