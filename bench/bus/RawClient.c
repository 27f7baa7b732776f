// Raw sd-bus. As the FLOOR it makes exactly the library's bus traffic and waits by the same rules;
// else it does the least that does the same work.
#include "Client.h"

#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>
#include <time.h>

#define TIME_LIMIT 600000000U // microseconds; tested before the outcome, and only by the floor

static sd_bus* bus;

static void check( int result, const char* what, const sd_bus_error* error ) {
   if( result < 0 ) {
      fprintf( stderr, "%s: %s\n", what, error->message ? error->message : strerror( -result ) );
      exit( 1 );
   }
}

static void readString( const char* path, const char* interface, const char* property ) {
   sd_bus_error error = SD_BUS_ERROR_NULL;
   char* value = NULL;
   check(
      sd_bus_get_property_string( bus, MANAGER, path, interface, property, &error, &value ),
      property, &error );
   free( value );
}

static void probe( void ) {
   if( FLOOR ) {
      readString( MANAGER_PATH, MANAGER_INTERFACE, "SystemState" );
   }
}

static uint64_t microseconds( void ) {
   struct timespec now;
   clock_gettime( CLOCK_MONOTONIC, &now );
   return (uint64_t)now.tv_sec * 1000000U + (uint64_t)now.tv_nsec / 1000U;
}

static void pump( const bool* done ) {
   const sd_bus_error error = SD_BUS_ERROR_NULL;
   const uint64_t start = FLOOR ? microseconds() : 0;
   while( FLOOR || !*done ) {
      const int processed = sd_bus_process( bus, NULL );
      check( processed, "sd_bus_process", &error );
      if( processed > 0 ) {
         continue;
      }
      const uint64_t elapsed = FLOOR ? microseconds() - start : 0;
      check( elapsed < TIME_LIMIT ? 0 : -ETIMEDOUT, "the wait", &error );
      if( *done ) {
         return;
      }
      check( sd_bus_wait( bus, TIME_LIMIT - elapsed ), "sd_bus_wait", &error );
   }
}

static sd_bus_slot* match(
   const char* path, const char* interface, const char* member, sd_bus_message_handler_t callback,
   void* record ) {
   const sd_bus_error error = SD_BUS_ERROR_NULL;
   sd_bus_slot* slot = NULL;
   check(
      sd_bus_match_signal( bus, &slot, MANAGER, path, interface, member, callback, record ), member,
      &error );
   return slot;
}

void clientOpen( void ) {
   const sd_bus_error error = SD_BUS_ERROR_NULL;
   check( sd_bus_open_system( &bus ), "sd_bus_open_system", &error );
   probe();
}

void clientClose( void ) {
   bus = sd_bus_flush_close_unref( bus );
}

void clientReadManager( void ) {
   probe();
   readString( MANAGER_PATH, MANAGER_INTERFACE, "SystemState" );
}

// The caller drops the reply, which the path points into.
static const char* unitPath( const char* unit, sd_bus_message** reply ) {
   sd_bus_error error = SD_BUS_ERROR_NULL;
   const char* path = NULL;
   probe();
   check(
      sd_bus_call_method(
         bus, MANAGER, MANAGER_PATH, MANAGER_INTERFACE, "GetUnit", &error, reply, "s", unit ),
      unit, &error );
   check( sd_bus_message_read( *reply, "o", &path ), "reading a path", &error );
   return path;
}

void clientReadUnit( const char* unit ) {
   sd_bus_message* reply = NULL;
   const char* const path = unitPath( unit, &reply );
   probe();
   readString( path, UNIT_INTERFACE, "ActiveState" );
   sd_bus_message_unref( reply );
}

static uint32_t call( const char* method, const char* unit ) {
   sd_bus_error error = SD_BUS_ERROR_NULL;
   sd_bus_message* reply = NULL;
   const char* path = NULL;
   probe();
   check(
      sd_bus_call_method(
         bus, MANAGER, MANAGER_PATH, MANAGER_INTERFACE, method, &error, &reply, "ss", unit,
         "replace" ),
      method, &error );
   check( sd_bus_message_read( reply, "o", &path ), "reading a path", &error );
   const uint32_t job = (uint32_t)strtoul( path + strlen( JOB_PATH ), NULL, 10 );
   sd_bus_message_unref( reply );
   return job;
}

struct Job {
   uint32_t id;
   bool removed;
   bool done;
};

static int onJobRemoved( sd_bus_message* signal, void* record, sd_bus_error* error ) {
   (void)error;
   struct Job* const job = record;
   uint32_t id = 0;
   const char* path = NULL;
   const char* unit = NULL;
   const char* result = NULL;
   const int read = sd_bus_message_read( signal, "uoss", &id, &path, &unit, &result );
   if( read >= 0 && id == job->id ) {
      job->removed = true;
      job->done = strcmp( result, "done" ) == 0;
   }
   return read < 0 ? read : 0;
}

void clientFollowJob( const char* method, const char* unit ) {
   struct Job job = { 0 };
   probe();
   sd_bus_slot* const slot =
      match( MANAGER_PATH, MANAGER_INTERFACE, "JobRemoved", onJobRemoved, &job );
   job.id = call( method, unit );
   pump( &job.removed );
   const sd_bus_error error = SD_BUS_ERROR_NULL;
   check( job.done ? 0 : -EIO, unit, &error );
   sd_bus_slot_unref( slot );
}

struct Reload {
   bool started;
   bool finished;
};

static int onReloading( sd_bus_message* signal, void* record, sd_bus_error* error ) {
   (void)error;
   struct Reload* const reload = record;
   int active = 0;
   const int read = sd_bus_message_read( signal, "b", &active );
   if( read >= 0 && active ) {
      reload->started = true;
   } else if( read >= 0 ) {
      reload->finished = reload->started;
   }
   return read < 0 ? read : 0;
}

void clientFollowDaemonReload( void ) {
   struct Reload reload = { 0 };
   sd_bus_error error = SD_BUS_ERROR_NULL;
   probe();
   sd_bus_slot* const slot =
      match( MANAGER_PATH, MANAGER_INTERFACE, "Reloading", onReloading, &reload );
   probe();
   check(
      sd_bus_call_method(
         bus, MANAGER, MANAGER_PATH, MANAGER_INTERFACE, "Reload", &error, NULL, "" ),
      "Reload", &error );
   pump( &reload.finished );
   sd_bus_slot_unref( slot );
}

static int onPropertiesChanged( sd_bus_message* signal, void* record, sd_bus_error* error ) {
   (void)error;
   struct Reload* const reload = record;
   const char* interface = NULL;
   int read = sd_bus_message_read( signal, "s", &interface );
   if( read < 0 || strcmp( interface, UNIT_INTERFACE ) != 0 ) {
      return read < 0 ? read : 0;
   }
   read = sd_bus_message_enter_container( signal, 'a', "{sv}" );
   while( read >= 0 && ( read = sd_bus_message_enter_container( signal, 'e', "sv" ) ) > 0 ) {
      const char* property = NULL;
      const char* state = "";
      read = sd_bus_message_read( signal, "s", &property );
      if( read >= 0 && strcmp( property, "ActiveState" ) == 0 ) {
         read = sd_bus_message_read( signal, "v", "s", &state );
         if( strcmp( state, "reloading" ) == 0 || strcmp( state, "activating" ) == 0 ) {
            reload->started = true;
         } else if( strcmp( state, "active" ) == 0 ) {
            reload->finished = reload->started;
         }
      } else if( read >= 0 ) {
         read = sd_bus_message_skip( signal, "v" );
      }
      if( read >= 0 ) {
         read = sd_bus_message_exit_container( signal );
      }
   }
   return read < 0 ? read : 0;
}

void clientFollowUnitReload( const char* unit ) {
   struct Reload reload = { 0 };
   sd_bus_message* reply = NULL;
   probe();
   const char* const path = unitPath( unit, &reply );
   sd_bus_slot* const slot =
      match( path, PROPERTIES_INTERFACE, "PropertiesChanged", onPropertiesChanged, &reload );
   call( "ReloadUnit", unit );
   pump( &reload.finished );
   sd_bus_slot_unref( slot );
   sd_bus_message_unref( reply );
}
