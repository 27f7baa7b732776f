// The life cycle of units and jobs, their signals, and the objects that sd-bus serves.
#include <support/ScriptedManagerModel.h>

#include <array>
#include <cstdlib>

#include <support/SystemdNames.h>

namespace SodrelTest {

namespace {

// No exception may pass through sd-bus: here it ends the process, with its text on standard error.
template< auto method >
int handled( sd_bus_message* call, void* model, sd_bus_error* ) noexcept {
   ( static_cast< ScriptedManagerModel* >( model )->*method )( call );
   return 1;
}

int readManagerProperty(
   sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply, void*,
   sd_bus_error* ) noexcept {
   static const std::map< std::string, Body > values{
      { "Version", body( "s", "252.39" ) },
      { "SystemState", body( "s", "running" ) },
      { "ShowStatus", body( "b", true ) },
      { "ServiceWatchdogs", body( "b", true ) },
   };
   return values.at( property ).append( reply );
}

int readUnitProperty(
   sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply, void* data,
   sd_bus_error* ) noexcept {
   const Unit& unit = *static_cast< const Unit* >( data );
   const std::map< std::string, Body > values{
      { "Id", body( "s", unit.name ) },
      { "ActiveState", body( "s", unit.activeState ) },
   };
   return values.at( property ).append( reply );
}

int findUnit(
   sd_bus*, const char* path, const char*, void* model, void** found, sd_bus_error* ) noexcept {
   *found = static_cast< ScriptedManagerModel* >( model )->unitAt( path );
   return *found != nullptr;
}

constexpr uint64_t constant = SD_BUS_VTABLE_PROPERTY_CONST;
constexpr auto doJob = handled< &ScriptedManagerModel::doJob >;

// The macros of systemd 247 leave a field out.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

const auto managerTable = std::to_array< sd_bus_vtable >( {
   SD_BUS_VTABLE_START( SD_BUS_VTABLE_UNPRIVILEGED ),
   SD_BUS_PROPERTY( "Version", "s", readManagerProperty, 0, constant ),
   SD_BUS_PROPERTY( "SystemState", "s", readManagerProperty, 0, 0 ),
   SD_BUS_PROPERTY( "ShowStatus", "b", readManagerProperty, 0, 0 ),
   SD_BUS_PROPERTY( "ServiceWatchdogs", "b", readManagerProperty, 0, 0 ),
   SD_BUS_METHOD( "Subscribe", "", "", handled< &ScriptedManagerModel::subscribe >, 0 ),
   SD_BUS_METHOD( "Reload", "", "", handled< &ScriptedManagerModel::reload >, 0 ),
   SD_BUS_METHOD( "GetUnit", "s", "o", handled< &ScriptedManagerModel::getUnit >, 0 ),
   SD_BUS_METHOD( "StartUnit", "ss", "o", doJob, 0 ),
   SD_BUS_METHOD( "StopUnit", "ss", "o", doJob, 0 ),
   SD_BUS_METHOD( "ReloadUnit", "ss", "o", doJob, 0 ),
   SD_BUS_METHOD( "RestartUnit", "ss", "o", doJob, 0 ),
   SD_BUS_METHOD( "TryRestartUnit", "ss", "o", doJob, 0 ),
   SD_BUS_METHOD( "ReloadOrRestartUnit", "ss", "o", doJob, 0 ),
   SD_BUS_METHOD( "ReloadOrTryRestartUnit", "ss", "o", doJob, 0 ),
   SD_BUS_SIGNAL( "JobRemoved", "uoss", 0 ),
   SD_BUS_SIGNAL( "Reloading", "b", 0 ),
   SD_BUS_VTABLE_END,
} );

const auto unitTable = std::to_array< sd_bus_vtable >( {
   SD_BUS_VTABLE_START( 0 ),
   SD_BUS_PROPERTY( "Id", "s", readUnitProperty, 0, constant ),
   SD_BUS_PROPERTY( "ActiveState", "s", readUnitProperty, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE ),
   SD_BUS_VTABLE_END,
} );

#pragma GCC diagnostic pop

} // namespace

ScriptedManagerModel::ScriptedManagerModel(
   std::string busAddress, const std::vector< Unit >& loaded, sd_bus_message_handler_t filter,
   void* userdata )
   : address_( std::move( busAddress ) ), filter_( filter ), userdata_( userdata ) {
   for( const Unit& unit : loaded ) {
      units_.emplace( unit.name, unit );
   }
}

void ScriptedManagerModel::connect() {
   disconnect();
   bus_ = busAt( address_ );
   sd_bus_track* track = nullptr;
   checked( sd_bus_track_new( bus(), &track, nullptr, nullptr ), "sd_bus_track_new" );
   subscribers_.reset( track );
   checked( sd_bus_add_filter( bus(), nullptr, filter_, userdata_ ), "sd_bus_add_filter" );
   checked(
      sd_bus_add_object_vtable(
         bus(), nullptr, managerPath, managerInterface, managerTable.data(), this ),
      "manager object" );
   checked(
      sd_bus_add_fallback_vtable(
         bus(), nullptr, "/org/freedesktop/systemd1/unit", unitInterface, unitTable.data(),
         findUnit, this ),
      "unit objects" );
   checked( sd_bus_request_name( bus(), systemdName, 0 ), "sd_bus_request_name" );
}

void ScriptedManagerModel::disconnect() {
   const bool busLives = bus_ && sd_bus_is_open( bus() ) > 0;
   subscribers_.reset();
   bus_.reset();
   if( busLives ) {
      const BusPtr observer = busAt( address_ );
      while( !ownerOf( observer.get(), systemdName ).empty() ) {
      }
   }
}

void ScriptedManagerModel::deliver() {
   if( bus_ && sd_bus_is_open( bus() ) > 0 ) {
      sd_bus_call_method(
         bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
         nullptr, nullptr, "" );
   }
}

pollfd ScriptedManagerModel::process() {
   int processed = 1;
   while( bus_ && processed > 0 ) {
      processed = sd_bus_process( bus(), nullptr );
   }
   if( processed < 0 ) {
      disconnect();
   }
   if( !bus_ ) {
      return { -1, 0, 0 };
   }
   return { checked( sd_bus_get_fd( bus() ), "sd_bus_get_fd" ),
            static_cast< short >( checked( sd_bus_get_events( bus() ), "sd_bus_get_events" ) ), 0 };
}

void ScriptedManagerModel::subscribe( sd_bus_message* call ) {
   if( checked( sd_bus_track_add_sender( subscribers_.get(), call ), "subscribe" ) == 0 ) {
      sendError(
         call, "org.freedesktop.systemd1.AlreadySubscribed", "Client is already subscribed." );
   } else {
      sendReply( call, {} );
   }
}

void ScriptedManagerModel::reload( sd_bus_message* call ) {
   if( subscribed() ) {
      for( const bool active : { true, false } ) {
         sendSignal( bus(), managerPath, managerInterface, "Reloading", body( "b", active ) );
      }
   }
   sendReply( call, {} );
}

void ScriptedManagerModel::getUnit( sd_bus_message* call ) {
   const char* name = nullptr;
   checked( sd_bus_message_read( call, "s", &name ), "GetUnit" );
   if( units_.contains( name ) ) {
      sendReply( call, body( "o", unitPath( name ) ) );
   } else {
      sendError(
         call, "org.freedesktop.systemd1.NoSuchUnit",
         "Unit " + std::string( name ) + " not loaded." );
   }
}

void ScriptedManagerModel::doJob( sd_bus_message* call ) {
   const std::string method = sd_bus_message_get_member( call );
   const char* name = nullptr;
   const char* mode = nullptr;
   checked( sd_bus_message_read( call, "ss", &name, &mode ), method.c_str() );
   const std::string unitName = name;
   const auto unit = units_.find( unitName );
   if( unit == units_.end() ) {
      const char* what = method == "StopUnit" ? " not loaded." : " not found.";
      sendError( call, "org.freedesktop.systemd1.NoSuchUnit", "Unit " + unitName + what );
   } else if( method == "ReloadUnit" && !unit->second.canReload ) {
      sendError(
         call, "org.freedesktop.systemd1.JobTypeNotApplicable",
         "Job type reload is not applicable for unit " + unitName + "." );
   } else {
      ++lastJob_;
      if( subscribed() ) {
         announce( unit->second );
      }
      sendReply( call, body( "o", jobOf( lastJob_ ) ) );
      run( method, unit->second );
   }
}

// Takes the unit through the states of its last job.
void ScriptedManagerModel::run( const std::string& method, Unit& unit ) {
   const bool up = unit.activeState == "active" || unit.activeState == "reloading";
   const bool stops = up && method != "StartUnit";
   const bool onlyIfUp = method.find( "Try" ) != std::string::npos;
   const bool starts = method != "StopUnit" && ( up ? stops : !onlyIfUp );
   std::vector< std::string > states;
   std::string result = "done";
   if( method == "ReloadUnit" && !up ) {
      result = "invalid";
   } else if( method.starts_with( "Reload" ) && up && unit.canReload ) {
      states = { "reloading", "active" };
   } else {
      if( stops ) {
         states = { "deactivating", "inactive" };
      }
      if( starts ) {
         states.insert( states.end(), unit.announcesStart ? 1 : 0, "activating" );
         states.emplace_back( unit.startFails ? "failed" : "active" );
         result = unit.startFails ? "failed" : "done";
      }
   }
   for( const std::string& state : states ) {
      unit.activeState = state;
      if( subscribed() ) {
         announce( unit );
      }
   }
   // At least the client that queued the job receives it, whether or not anyone has subscribed.
   sendSignal(
      bus(), managerPath, managerInterface, "JobRemoved",
      body( "uoss", lastJob_, jobOf( lastJob_ ), unit.name, result ) );
}

Unit* ScriptedManagerModel::unitAt( const char* path ) {
   for( auto& [name, unit] : units_ ) {
      if( unitPath( name ) == path ) {
         return &unit;
      }
   }
   return nullptr;
}

void ScriptedManagerModel::changeState( const std::string& unitName, const std::string& state ) {
   Unit& unit = units_.at( unitName );
   unit.activeState = state;
   announce( unit );
}

bool ScriptedManagerModel::subscribed() const {
   return sd_bus_track_count( subscribers_.get() ) > 0;
}

// The interface of the unit's type comes first, then the one that all units have.
void ScriptedManagerModel::announce( const Unit& unit ) {
   const std::string path = unitPath( unit.name );
   sendSignal(
      bus(), path, propertiesInterface, "PropertiesChanged",
      body( "sa{sv}as", "org.freedesktop.systemd1.Service", 1, "MainPID", "u", 0U, 0 ) );
   sendSignal(
      bus(), path, propertiesInterface, "PropertiesChanged",
      body(
         "sa{sv}as", unitInterface, 2, "ActiveState", "s", unit.activeState, "StateChangeTimestamp",
         "t", uint64_t{ 0 }, 1, "Conditions" ) );
}

} // namespace SodrelTest
