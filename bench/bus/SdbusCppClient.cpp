// sdbus-c++, in the form that its documentation recommends for use from one thread.
#include "Client.h"

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

static std::unique_ptr< sdbus::IConnection > connection;

static std::unique_ptr< sdbus::IProxy > proxyOf( const std::string& path ) {
   return sdbus::createProxy( *connection, MANAGER, path );
}

static std::unique_ptr< sdbus::IProxy > manager;

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

static std::string pathOf( const std::string& unit ) {
   sdbus::ObjectPath path;
   manager->callMethod( "GetUnit" )
      .onInterface( MANAGER_INTERFACE )
      .withArguments( unit )
      .storeResultsTo( path );
   return path;
}

void clientReadUnit( const char* unit ) {
   static_cast< void >( proxyOf( pathOf( unit ) )
                           ->getProperty( "ActiveState" )
                           .onInterface( UNIT_INTERFACE )
                           .get< std::string >() );
}

static std::uint32_t call( const std::string& method, const std::string& unit ) {
   sdbus::ObjectPath job;
   manager->callMethod( method )
      .onInterface( MANAGER_INTERFACE )
      .withArguments( unit, "replace" )
      .storeResultsTo( job );
   return static_cast< std::uint32_t >( std::stoul( job.substr( sizeof JOB_PATH - 1 ) ) );
}

void clientFollowJob( const char* method, const char* unit ) {
   std::uint32_t awaited = 0;
   bool done = false;
   const auto signals = proxyOf( MANAGER_PATH );
   signals->uponSignal( "JobRemoved" )
      .onInterface( MANAGER_INTERFACE )
      .call( [&](
                std::uint32_t job, const sdbus::ObjectPath&, const std::string&,
                const std::string& result ) {
         if( job == awaited ) {
            done = result == "done";
            connection->leaveEventLoop();
         }
      } );
   signals->finishRegistration();
   awaited = call( method, unit );
   connection->enterEventLoop();
   if( !done ) {
      throw std::runtime_error( unit );
   }
}

void clientFollowDaemonReload() {
   bool started = false;
   const auto signals = proxyOf( MANAGER_PATH );
   signals->uponSignal( "Reloading" ).onInterface( MANAGER_INTERFACE ).call( [&]( bool active ) {
      if( active ) {
         started = true;
      } else if( started ) {
         connection->leaveEventLoop();
      }
   } );
   signals->finishRegistration();
   manager->callMethod( "Reload" ).onInterface( MANAGER_INTERFACE );
   connection->enterEventLoop();
}

void clientFollowUnitReload( const char* unit ) {
   using Properties = std::map< std::string, sdbus::Variant >;
   bool started = false;
   bool finished = false;
   const auto signals = proxyOf( pathOf( unit ) );
   signals->uponSignal( "PropertiesChanged" )
      .onInterface( PROPERTIES_INTERFACE )
      .call( [&](
                const std::string& interface, const Properties& changed,
                const std::vector< std::string >& ) {
         const auto property = changed.find( "ActiveState" );
         if( finished || interface != UNIT_INTERFACE || property == changed.end() ) {
            return;
         }
         const auto state = property->second.get< std::string >();
         if( state == "reloading" || state == "activating" ) {
            started = true;
         } else if( started && state == "active" ) {
            finished = true;
            connection->leaveEventLoop();
         }
      } );
   signals->finishRegistration();
   call( "ReloadUnit", unit );
   connection->enterEventLoop();
}
