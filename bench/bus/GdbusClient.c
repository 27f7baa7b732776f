// GDBus, with its synchronous calls and signals on the default main context.
#include "Client.h"

#include <gio/gio.h>

static GDBusConnection* bus;

static void check( const GError* error ) {
   if( error ) {
      fail( "GDBus", error->message );
   }
}

void clientOpen( void ) {
   GError* error = NULL;
   char* const address = g_dbus_address_get_for_bus_sync( G_BUS_TYPE_SYSTEM, NULL, &error );
   check( error );
   bus = g_dbus_connection_new_for_address_sync(
      address,
      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION,
      NULL, NULL, &error );
   check( error );
   g_free( address );
}

void clientClose( void ) {
   GError* error = NULL;
   g_dbus_connection_close_sync( bus, NULL, &error );
   check( error );
   g_clear_object( &bus );
}

static GVariant* call(
   const char* path, const char* interface, const char* method, GVariant* arguments,
   const char* result ) {
   GError* error = NULL;
   GVariant* const reply = g_dbus_connection_call_sync(
      bus, MANAGER, path, interface, method, arguments, G_VARIANT_TYPE( result ),
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

// Updates `awaited` on each signal; the three signals have bodies of different types.
static void onSignal(
   GDBusConnection* from, const char* sender, const char* path, const char* interface,
   const char* member, GVariant* body, gpointer awaited ) {
   (void)from, (void)sender, (void)path, (void)interface, (void)member;
   if( g_variant_is_of_type( body, G_VARIANT_TYPE( "(uoss)" ) ) ) {
      guint32 job = 0;
      const char* result = NULL;
      g_variant_get( body, "(u&o&s&s)", &job, NULL, NULL, &result );
      jobRemoved( awaited, job, result );
   } else if( g_variant_is_of_type( body, G_VARIANT_TYPE( "(b)" ) ) ) {
      gboolean running = FALSE;
      g_variant_get( body, "(b)", &running );
      reloadSeen( awaited, running );
   } else {
      const char* changedInterface = NULL;
      const char* state = NULL;
      GVariant* changed = NULL;
      g_variant_get( body, "(&s@a{sv}@as)", &changedInterface, &changed, NULL );
      if( g_str_equal( changedInterface, UNIT_INTERFACE ) &&
          g_variant_lookup( changed, "ActiveState", "&s", &state ) ) {
         stateSeen( awaited, state );
      }
      g_variant_unref( changed );
   }
}

static guint
subscribe( const char* path, const char* interface, const char* member, struct Awaited* awaited ) {
   return g_dbus_connection_signal_subscribe(
      bus, MANAGER, interface, member, path, NULL, G_DBUS_SIGNAL_FLAGS_NONE, onSignal, awaited,
      NULL );
}

static void await( const struct Awaited* awaited, guint subscription ) {
   while( !awaited->ended ) {
      g_main_context_iteration( NULL, TRUE );
   }
   g_dbus_connection_signal_unsubscribe( bus, subscription );
}

static uint32_t callForJob( const char* method, const char* unit ) {
   char* const path = managerCallForPath( method, g_variant_new( "(ss)", unit, "replace" ) );
   const uint32_t job = jobOf( path );
   g_free( path );
   return job;
}

void clientRestart( const char* unit ) {
   struct Awaited awaited = { 0 };
   const guint subscription = subscribe( MANAGER_PATH, MANAGER_INTERFACE, "JobRemoved", &awaited );
   awaited.job = callForJob( "RestartUnit", unit );
   await( &awaited, subscription );
}

void clientReloadManager( void ) {
   struct Awaited awaited = { 0 };
   const guint subscription = subscribe( MANAGER_PATH, MANAGER_INTERFACE, "Reloading", &awaited );
   g_variant_unref( call( MANAGER_PATH, MANAGER_INTERFACE, "Reload", NULL, "()" ) );
   await( &awaited, subscription );
}

void clientReloadUnit( const char* unit ) {
   struct Awaited awaited = { 0 };
   char* const path = managerCallForPath( "GetUnit", g_variant_new( "(s)", unit ) );
   const guint subscription =
      subscribe( path, PROPERTIES_INTERFACE, "PropertiesChanged", &awaited );
   callForJob( "ReloadUnit", unit );
   await( &awaited, subscription );
   g_free( path );
}
