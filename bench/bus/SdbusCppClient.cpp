// sdbus-c++, in the form that its documentation recommends for use from one thread.
#include "Client.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

static std::unique_ptr< sdbus::IConnection > connection;
static std::unique_ptr< sdbus::IProxy > manager;

static std::unique_ptr< sdbus::IProxy > proxyOf( const std::string& path ) {
   return sdbus::createProxy( *connection, MANAGER, path );
}

void clientOpen() {
   connection = sdbus::createSystemBusConnection();
   manager = proxyOf( MANAGER_PATH );
}

void clientClose() {
   manager.reset();
   connection.reset();
}

void clientReadManager() {
   static_cast< void >(
      manager->getProperty( "SystemState" ).onInterface( MANAGER_INTERFACE ).get< std::string >() );
}

template< typename... Arguments >
static sdbus::ObjectPath call( const std::string& method, const Arguments&... arguments ) {
   sdbus::ObjectPath path;
   manager->callMethod( method )
      .onInterface( MANAGER_INTERFACE )
      .withArguments( arguments... )
      .storeResultsTo( path );
   return path;
}

void clientReadUnit( const char* unit ) {
   static_cast< void >( proxyOf( call( "GetUnit", unit ) )
                           ->getProperty( "ActiveState" )
                           .onInterface( UNIT_INTERFACE )
                           .get< std::string >() );
}

// Leaves the event loop only once, because a second time would end the next wait.
template< typename Update >
static void whileAwaited( const Awaited& awaited, const Update& update ) {
   if( !awaited.ended ) {
      update();
      if( awaited.ended ) {
         connection->leaveEventLoop();
      }
   }
}

void clientRestart( const char* unit ) {
   Awaited awaited{};
   const auto signals = proxyOf( MANAGER_PATH );
   signals->uponSignal( "JobRemoved" )
      .onInterface( MANAGER_INTERFACE )
      .call( [&](
                std::uint32_t job, const sdbus::ObjectPath&, const std::string&,
                const std::string& result ) {
         whileAwaited( awaited, [&] { jobRemoved( &awaited, job, result.c_str() ); } );
      } );
   signals->finishRegistration();
   awaited.job = jobOf( call( "RestartUnit", unit, "replace" ).c_str() );
   connection->enterEventLoop();
}

void clientReloadManager() {
   Awaited awaited{};
   const auto signals = proxyOf( MANAGER_PATH );
   signals->uponSignal( "Reloading" ).onInterface( MANAGER_INTERFACE ).call( [&]( bool running ) {
      whileAwaited( awaited, [&] { reloadSeen( &awaited, running ); } );
   } );
   signals->finishRegistration();
   manager->callMethod( "Reload" ).onInterface( MANAGER_INTERFACE );
   connection->enterEventLoop();
}

void clientReloadUnit( const char* unit ) {
   Awaited awaited{};
   const auto signals = proxyOf( call( "GetUnit", unit ) );
   signals->uponSignal( "PropertiesChanged" )
      .onInterface( PROPERTIES_INTERFACE )
      .call( [&](
                const std::string& interface,
                const std::map< std::string, sdbus::Variant >& changed,
                const std::vector< std::string >& ) {
         const auto property = changed.find( "ActiveState" );
         if( interface == UNIT_INTERFACE && property != changed.end() ) {
            const auto state = property->second.get< std::string >();
            whileAwaited( awaited, [&] { stateSeen( &awaited, state.c_str() ); } );
         }
      } );
   signals->finishRegistration();
   call( "ReloadUnit", unit, "replace" );
   connection->enterEventLoop();
}
