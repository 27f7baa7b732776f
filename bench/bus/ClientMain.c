// Runs and times a client: reads lines "OPERATION UNIT COUNT" and replies to each with the
// processor and wall time of every run.
#include "Client.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <valgrind/callgrind.h>

void fail( const char* what, const char* why ) {
   fprintf( stderr, "%s: %s\n", what, why );
   exit( 1 );
}

uint32_t jobOf( const char* path ) {
   return (uint32_t)strtoul( path + strlen( MANAGER_PATH "/job/" ), NULL, 10 );
}

void jobRemoved( struct Awaited* awaited, uint32_t job, const char* result ) {
   if( job == awaited->job ) {
      awaited->ended = true;
      if( strcmp( result, "done" ) != 0 ) {
         fail( "a job", result );
      }
   }
}

void reloadSeen( struct Awaited* awaited, bool running ) {
   if( running ) {
      awaited->started = true;
   } else {
      awaited->ended = awaited->started;
   }
}

void stateSeen( struct Awaited* awaited, const char* state ) {
   if( strcmp( state, "reloading" ) == 0 || strcmp( state, "activating" ) == 0 ) {
      awaited->started = true;
   } else if( strcmp( state, "active" ) == 0 ) {
      awaited->ended = awaited->started;
   }
}

static void run( char operation, const char* unit ) {
   switch( operation ) {
   case '1':
      clientReadManager();
      break;
   case '2':
      clientReadUnit( unit );
      break;
   case '3':
      clientRestart( unit );
      break;
   case '4':
      clientReloadManager();
      break;
   case '5':
      clientReloadUnit( unit );
      break;
   case '6':
      clientClose();
      clientOpen();
      clientReadManager();
      break;
   default:
      fail( "unknown operation", ( char[] ){ operation, '\0' } );
   }
}

static uint64_t nanoseconds( clockid_t clock ) {
   struct timespec now;
   clock_gettime( clock, &now );
   return (uint64_t)now.tv_sec * 1000000000U + (uint64_t)now.tv_nsec;
}

static uint64_t timeOf( struct timeval time ) {
   return (uint64_t)time.tv_sec * 1000000000U + (uint64_t)time.tv_usec * 1000U;
}

// The time of the process and of the children it has waited for.
static uint64_t processorTime( void ) {
   struct rusage children;
   getrusage( RUSAGE_CHILDREN, &children );
   return nanoseconds( CLOCK_PROCESS_CPUTIME_ID ) + timeOf( children.ru_utime ) +
          timeOf( children.ru_stime );
}

// Under callgrind, the instructions of each run go into a separate file.
static void measure( char operation, const char* unit ) {
   const uint64_t processor = processorTime();
   const uint64_t wall = nanoseconds( CLOCK_MONOTONIC );
   CALLGRIND_ZERO_STATS;
   run( operation, unit );
   CALLGRIND_DUMP_STATS;
   const uint64_t wallTime = nanoseconds( CLOCK_MONOTONIC ) - wall;
   printf(
      "%llu %llu ", (unsigned long long)( processorTime() - processor ),
      (unsigned long long)wallTime );
}

int main( void ) {
   char operation = 0;
   char unit[64];
   unsigned count = 0;
   clientOpen();
   puts( "ready" );
   fflush( stdout );
   while( scanf( " %c %63s %u", &operation, unit, &count ) == 3 ) {
      for( ; count > 0; --count ) {
         measure( operation, unit );
      }
      putchar( '\n' );
      fflush( stdout );
   }
   clientClose();
   return 0;
}
