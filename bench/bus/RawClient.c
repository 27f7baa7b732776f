// Raw sd-bus. As the FLOOR, it produces exactly the library's bus traffic and waits by the same
// rules; otherwise it does the minimum for the same result.
#include "Client.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>
#include <time.h>

#define TIME_LIMIT 600000000U // microseconds; checked before the outcome, only by the floor

static sd_bus* bus;
static sd_bus_error error;

static int check( int result, const char* what ) {
   if( result < 0 ) {
      fail( what, error.message ? error.message : strerror( -result ) );
   }
   return result;
}

static void readString( const char* path, const char* interface, const char* property ) {
   char* value = NULL;
   check(
      sd_bus_get_property_string( bus, MANAGER, path, interface, property, &error, &value ),
      property );
   free( value );
}

static void probe( void ) {
   if( FLOOR ) {
      readString( MANAGER_PATH, MANAGER_INTERFACE, "SystemState" );
   }
}

void clientOpen( void ) {
   check( sd_bus_open_system( &bus ), "sd_bus_open_system" );
   probe();
}

void clientClose( void ) {
   bus = sd_bus_flush_close_unref( bus );
}

void clientReadManager( void ) {
   probe();
   readString( MANAGER_PATH, MANAGER_INTERFACE, "SystemState" );
}

// Calls a method of the manager. The caller releases the reply.
static sd_bus_message* call( const char* method, const char* types, const char* unit ) {
   sd_bus_message* reply = NULL;
   probe();
   check(
      sd_bus_call_method(
         bus, MANAGER, MANAGER_PATH, MANAGER_INTERFACE, method, &error, &reply, types, unit,
         "replace" ),
      method );
   return reply;
}

// Borrows the path from the reply.
static const char* pathIn( sd_bus_message* reply ) {
   const char* path = NULL;
   check( sd_bus_message_read( reply, "o", &path ), "the path in a reply" );
   return path;
}

static uint32_t callForJob( const char* method, const char* unit ) {
   sd_bus_message* const reply = call( method, "ss", unit );
   const uint32_t job = jobOf( pathIn( reply ) );
   sd_bus_message_unref( reply );
   return job;
}

void clientReadUnit( const char* unit ) {
   sd_bus_message* const reply = call( "GetUnit", "s", unit );
   const char* const path = pathIn( reply );
   probe();
   readString( path, UNIT_INTERFACE, "ActiveState" );
   sd_bus_message_unref( reply );
}

static sd_bus_slot* match(
   const char* path, const char* interface, const char* member, sd_bus_message_handler_t callback,
   struct Awaited* awaited ) {
   sd_bus_slot* slot = NULL;
   check(
      sd_bus_match_signal( bus, &slot, MANAGER, path, interface, member, callback, awaited ),
      member );
   return slot;
}

static uint64_t microseconds( void ) {
   struct timespec now;
   clock_gettime( CLOCK_MONOTONIC, &now );
   return (uint64_t)now.tv_sec * 1000000U + (uint64_t)now.tv_nsec / 1000U;
}

static void await( const struct Awaited* awaited, sd_bus_slot* slot ) {
   const uint64_t start = FLOOR ? microseconds() : 0;
   while( FLOOR || !awaited->ended ) {
      if( check( sd_bus_process( bus, NULL ), "sd_bus_process" ) > 0 ) {
         continue;
      }
      const uint64_t elapsed = FLOOR ? microseconds() - start : 0;
      check( elapsed < TIME_LIMIT ? 0 : -ETIMEDOUT, "the wait" );
      if( awaited->ended ) {
         break;
      }
      check( sd_bus_wait( bus, TIME_LIMIT - elapsed ), "sd_bus_wait" );
   }
   sd_bus_slot_unref( slot );
}

static int onJobRemoved( sd_bus_message* signal, void* awaited, sd_bus_error* unused ) {
   (void)unused;
   uint32_t job = 0;
   const char* path = NULL;
   const char* unit = NULL;
   const char* result = NULL;
   check( sd_bus_message_read( signal, "uoss", &job, &path, &unit, &result ), "JobRemoved" );
   jobRemoved( awaited, job, result );
   return 0;
}

void clientRestart( const char* unit ) {
   struct Awaited awaited = { 0 };
   probe();
   sd_bus_slot* const slot =
      match( MANAGER_PATH, MANAGER_INTERFACE, "JobRemoved", onJobRemoved, &awaited );
   awaited.job = callForJob( "RestartUnit", unit );
   await( &awaited, slot );
}

static int onReloading( sd_bus_message* signal, void* awaited, sd_bus_error* unused ) {
   (void)unused;
   int running = 0;
   check( sd_bus_message_read( signal, "b", &running ), "Reloading" );
   reloadSeen( awaited, running != 0 );
   return 0;
}

void clientReloadManager( void ) {
   struct Awaited awaited = { 0 };
   probe();
   sd_bus_slot* const slot =
      match( MANAGER_PATH, MANAGER_INTERFACE, "Reloading", onReloading, &awaited );
   sd_bus_message_unref( call( "Reload", "", NULL ) );
   await( &awaited, slot );
}

static int onPropertiesChanged( sd_bus_message* signal, void* awaited, sd_bus_error* unused ) {
   (void)unused;
   const char* text = NULL;
   check( sd_bus_message_read( signal, "s", &text ), "an interface" );
   if( strcmp( text, UNIT_INTERFACE ) != 0 ) {
      return 0;
   }
   check( sd_bus_message_enter_container( signal, 'a', "{sv}" ), "properties" );
   while( check( sd_bus_message_enter_container( signal, 'e', "sv" ), "a property" ) > 0 ) {
      check( sd_bus_message_read( signal, "s", &text ), "a property's name" );
      if( strcmp( text, "ActiveState" ) == 0 ) {
         check( sd_bus_message_read( signal, "v", "s", &text ), "ActiveState" );
         stateSeen( awaited, text );
      } else {
         check( sd_bus_message_skip( signal, "v" ), "a property's value" );
      }
      check( sd_bus_message_exit_container( signal ), "a property" );
   }
   return 0;
}

void clientReloadUnit( const char* unit ) {
   struct Awaited awaited = { 0 };
   probe();
   sd_bus_message* const reply = call( "GetUnit", "s", unit );
   sd_bus_slot* const slot = match(
      pathIn( reply ), PROPERTIES_INTERFACE, "PropertiesChanged", onPropertiesChanged, &awaited );
   callForJob( "ReloadUnit", unit );
   await( &awaited, slot );
   sd_bus_message_unref( reply );
}
