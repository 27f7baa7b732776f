// The loop that measures a client: "OPERATION COUNT" comes in, processor and wall times go out.
#include "Client.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <valgrind/callgrind.h>

static void startTarget( void ) {
   clientFollowJob( "StartUnit", TARGET );
}

static void stopTarget( void ) {
   clientFollowJob( "StopUnit", TARGET );
}

static void startOneshot( void ) {
   clientFollowJob( "StartUnit", ONESHOT );
}

static void restartService( void ) {
   clientFollowJob( "RestartUnit", SERVICE );
}

static void readUnit( void ) {
   clientReadUnit( SERVICE );
}

static void reloadUnit( void ) {
   clientFollowUnitReload( SERVICE );
}

static void readOnce( void ) {
   clientOpen();
   clientReadManager();
   clientClose();
}

static void nothing( void ) {}

// `prepare` runs before each measured `run` and is not measured itself.
static const struct Operation {
   const char* name;
   void ( *prepare )( void );
   void ( *run )( void );
} operations[] = {
   { "1", nothing, clientReadManager },
   { "2", nothing, readUnit },
   { "3a", stopTarget, startTarget },
   { "3b", nothing, startOneshot },
   { "3c", nothing, restartService },
   { "3d", startTarget, stopTarget },
   { "4", nothing, clientFollowDaemonReload },
   { "5", nothing, reloadUnit },
   { "6", clientClose, readOnce },
   { "7", nothing, startTarget },
};

static const struct Operation* find( const char* name ) {
   for( size_t index = 0; index < sizeof operations / sizeof *operations; ++index ) {
      if( strcmp( operations[index].name, name ) == 0 ) {
         return &operations[index];
      }
   }
   fprintf( stderr, "no operation '%s'\n", name );
   exit( 1 );
}

static uint64_t nanoseconds( clockid_t clock ) {
   struct timespec now;
   clock_gettime( clock, &now );
   return (uint64_t)now.tv_sec * 1000000000U + (uint64_t)now.tv_nsec;
}

static uint64_t timeOf( struct timeval time ) {
   return (uint64_t)time.tv_sec * 1000000000U + (uint64_t)time.tv_usec * 1000U;
}

// Of the process and of the children it has waited for.
static uint64_t processorTime( void ) {
   struct rusage children;
   getrusage( RUSAGE_CHILDREN, &children );
   return nanoseconds( CLOCK_PROCESS_CPUTIME_ID ) + timeOf( children.ru_utime ) +
          timeOf( children.ru_stime );
}

// Under callgrind, each run's instructions go into a file of their own.
static void measure( const struct Operation* operation, uint64_t* processor, uint64_t* wall ) {
   operation->prepare();
   const uint64_t processorBefore = processorTime();
   const uint64_t wallBefore = nanoseconds( CLOCK_MONOTONIC );
   CALLGRIND_ZERO_STATS;
   operation->run();
   CALLGRIND_DUMP_STATS;
   *wall = nanoseconds( CLOCK_MONOTONIC ) - wallBefore;
   *processor = processorTime() - processorBefore;
}

int main( void ) {
   char name[8];
   unsigned count = 0;
   clientOpen();
   puts( "ready" );
   fflush( stdout );
   while( scanf( "%7s %u", name, &count ) == 2 ) {
      const struct Operation* const operation = find( name );
      for( unsigned done = 0; done < count; ++done ) {
         uint64_t processor = 0;
         uint64_t wall = 0;
         measure( operation, &processor, &wall );
         printf( "%llu %llu ", (unsigned long long)processor, (unsigned long long)wall );
      }
      if( operation->run == readOnce ) {
         clientOpen();
      }
      putchar( '\n' );
      fflush( stdout );
   }
   clientClose();
   return 0;
}
