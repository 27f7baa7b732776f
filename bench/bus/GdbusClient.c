// GDBus, with its synchronous calls and signals on the default main context.
#include "Client.h"

#include <gio/gio.h>
#include <stdlib.h>
#include <string.h>

static GDBusConnection* connection;

static void check( GError* error ) {
   if( error ) {
      g_error( "%s", error->message );
   }
}

void clientOpen( void ) {
   GError* error = NULL;
   char* const address = g_dbus_address_get_for_bus_sync( G_BUS_TYPE_SYSTEM, NULL, &error );
   check( error );
   connection = g_dbus_connection_new_for_address_sync(
      address,
      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION,
      NULL, NULL, &error );
   check( error );
   g_free( address );
}

void clientClose( void ) {
   GError* error = NULL;
   if( connection ) {
      g_dbus_connection_close_sync( connection, NULL, &error );
      check( error );
      g_clear_object( &connection );
   }
}

static GVariant* call(
   const char* path, const char* interface, const char* method, GVariant* arguments,
   const char* result ) {
   GError* error = NULL;
   GVariant* const reply = g_dbus_connection_call_sync(
      connection, MANAGER, path, interface, method, arguments, G_VARIANT_TYPE( result ),
      G_DBUS_CALL_FLAGS_NONE, -1, NULL, &error );
   check( error );
   return reply;
}

static void readString( const char* path, const char* interface, const char* property ) {
   GVariant* const reply = call(
      path, PROPERTIES_INTERFACE, "Get", g_variant_new( "(ss)", interface, property ), "(v)" );
   GVariant* value = NULL;
   g_variant_get( reply, "(v)", &value );
   g_free( g_variant_dup_string( value, NULL ) );
   g_variant_unref( value );
   g_variant_unref( reply );
}

void clientReadManager( void ) {
   readString( MANAGER_PATH, MANAGER_INTERFACE, "SystemState" );
}

static char* managerCallForPath( const char* method, GVariant* arguments ) {
   GVariant* const reply = call( MANAGER_PATH, MANAGER_INTERFACE, method, arguments, "(o)" );
   char* path = NULL;
   g_variant_get( reply, "(o)", &path );
   g_variant_unref( reply );
   return path;
}

void clientReadUnit( const char* unit ) {
   char* const path = managerCallForPath( "GetUnit", g_variant_new( "(s)", unit ) );
   readString( path, UNIT_INTERFACE, "ActiveState" );
   g_free( path );
}

struct Wait {
   guint32 job;
   gboolean started;
   gboolean finished;
};

static guint subscribe(
   const char* path, const char* interface, const char* member, GDBusSignalCallback callback,
   struct Wait* wait ) {
   return g_dbus_connection_signal_subscribe(
      connection, MANAGER, interface, member, path, NULL, G_DBUS_SIGNAL_FLAGS_NONE, callback, wait,
      NULL );
}

static void await( const struct Wait* wait, guint subscription ) {
   while( !wait->finished ) {
      g_main_context_iteration( NULL, TRUE );
   }
   g_dbus_connection_signal_unsubscribe( connection, subscription );
}

static void onJobRemoved(
   GDBusConnection* from, const char* sender, const char* path, const char* interface,
   const char* member, GVariant* body, gpointer record ) {
   (void)from, (void)sender, (void)path, (void)interface, (void)member;
   struct Wait* const wait = record;
   guint32 job = 0;
   const char* result = NULL;
   g_variant_get( body, "(u&o&s&s)", &job, NULL, NULL, &result );
   if( job == wait->job ) {
      g_assert_cmpstr( result, ==, "done" );
      wait->finished = TRUE;
   }
}

void clientFollowJob( const char* method, const char* unit ) {
   struct Wait wait = { 0 };
   const guint subscription =
      subscribe( MANAGER_PATH, MANAGER_INTERFACE, "JobRemoved", onJobRemoved, &wait );
   char* const path = managerCallForPath( method, g_variant_new( "(ss)", unit, "replace" ) );
   wait.job = (guint32)strtoul( path + strlen( JOB_PATH ), NULL, 10 );
   g_free( path );
   await( &wait, subscription );
}

static void onReloading(
   GDBusConnection* from, const char* sender, const char* path, const char* interface,
   const char* member, GVariant* body, gpointer record ) {
   (void)from, (void)sender, (void)path, (void)interface, (void)member;
   struct Wait* const wait = record;
   gboolean active = FALSE;
   g_variant_get( body, "(b)", &active );
   if( active ) {
      wait->started = TRUE;
   } else {
      wait->finished = wait->started;
   }
}

void clientFollowDaemonReload( void ) {
   struct Wait wait = { 0 };
   const guint subscription =
      subscribe( MANAGER_PATH, MANAGER_INTERFACE, "Reloading", onReloading, &wait );
   g_variant_unref( call( MANAGER_PATH, MANAGER_INTERFACE, "Reload", NULL, "()" ) );
   await( &wait, subscription );
}

static void onPropertiesChanged(
   GDBusConnection* from, const char* sender, const char* path, const char* changedInterface,
   const char* member, GVariant* body, gpointer record ) {
   (void)from, (void)sender, (void)path, (void)changedInterface, (void)member;
   struct Wait* const wait = record;
   const char* interface = NULL;
   const char* state = NULL;
   GVariant* changed = NULL;
   g_variant_get( body, "(&s@a{sv}@as)", &interface, &changed, NULL );
   if( strcmp( interface, UNIT_INTERFACE ) == 0 &&
       g_variant_lookup( changed, "ActiveState", "&s", &state ) ) {
      if( strcmp( state, "reloading" ) == 0 || strcmp( state, "activating" ) == 0 ) {
         wait->started = TRUE;
      } else if( strcmp( state, "active" ) == 0 ) {
         wait->finished = wait->started;
      }
   }
   g_variant_unref( changed );
}

void clientFollowUnitReload( const char* unit ) {
   struct Wait wait = { 0 };
   char* const path = managerCallForPath( "GetUnit", g_variant_new( "(s)", unit ) );
   const guint subscription =
      subscribe( path, PROPERTIES_INTERFACE, "PropertiesChanged", onPropertiesChanged, &wait );
   g_free( path );
   g_free( managerCallForPath( "ReloadUnit", g_variant_new( "(ss)", unit, "replace" ) ) );
   await( &wait, subscription );
}
