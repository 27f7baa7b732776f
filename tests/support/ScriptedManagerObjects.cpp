// The manager's objects as sd-bus serves them, which gives systemd's texts for bad requests too.
#include <array>

#include <support/ScriptedManagerMessages.h>
#include <support/ScriptedManagerModel.h>

namespace Sodrel::Test {

namespace {

// No exception may pass through sd-bus: here one ends the process, with its text on standard error.
int callMethod( sd_bus_message* call, void* model, sd_bus_error* ) noexcept {
   static_cast< ScriptedManagerModel* >( model )->standard( call );
   return 1;
}

int readManagerProperty(
   sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply, void*,
   sd_bus_error* ) noexcept {
   static const std::map< std::string, Body > values{
      { "Version", body( "s", "252.39" ) },      { "Architecture", body( "s", "x86-64" ) },
      { "SystemState", body( "s", "running" ) }, { "ConfirmSpawn", body( "b", false ) },
      { "ShowStatus", body( "b", true ) },       { "ServiceWatchdogs", body( "b", true ) },
      { "NFailedUnits", body( "u", 0 ) },
   };
   const Body& value = values.at( property );
   appendBody( reply, { value.signature, value.values.front() } );
   return 1;
}

int readUnitProperty(
   sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply, void* unit,
   sd_bus_error* ) noexcept {
   const Unit& read = *static_cast< const Unit* >( unit );
   const std::map< std::string, Body > values{
      { "Id", body( "s", read.name ) },
      { "Description", body( "s", "Scripted " + read.name ) },
      { "LoadState", body( "s", "loaded" ) },
      { "ActiveState", body( "s", read.activeState ) },
      { "CanReload", body( "b", read.canReload ) },
   };
   const Body& value = values.at( property );
   appendBody( reply, { value.signature, value.values.front() } );
   return 1;
}

int readJobType(
   sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* job,
   sd_bus_error* ) noexcept {
   appendBody( reply, { "s", static_cast< const Job* >( job )->type } );
   return 1;
}

int findUnit(
   sd_bus*, const char* path, const char*, void* model, void** found, sd_bus_error* ) noexcept {
   *found = const_cast< Unit* >( static_cast< ScriptedManagerModel* >( model )->unitAt( path ) );
   return *found != nullptr;
}

int findJob(
   sd_bus*, const char* path, const char*, void* model, void** found, sd_bus_error* ) noexcept {
   *found = const_cast< Job* >( static_cast< ScriptedManagerModel* >( model )->jobAt( path ) );
   return *found != nullptr;
}

constexpr uint64_t constant = SD_BUS_VTABLE_PROPERTY_CONST;

const auto managerTable = std::to_array< sd_bus_vtable >( {
   SD_BUS_VTABLE_START( SD_BUS_VTABLE_UNPRIVILEGED ),
   SD_BUS_PROPERTY( "Version", "s", readManagerProperty, 0, constant ),
   SD_BUS_PROPERTY( "Architecture", "s", readManagerProperty, 0, constant ),
   SD_BUS_PROPERTY( "SystemState", "s", readManagerProperty, 0, 0 ),
   SD_BUS_PROPERTY( "ConfirmSpawn", "b", readManagerProperty, 0, constant ),
   SD_BUS_PROPERTY( "ShowStatus", "b", readManagerProperty, 0, 0 ),
   SD_BUS_PROPERTY( "ServiceWatchdogs", "b", readManagerProperty, 0, 0 ),
   SD_BUS_PROPERTY( "NFailedUnits", "u", readManagerProperty, 0, 0 ),
   SD_BUS_METHOD( "Subscribe", "", "", callMethod, 0 ),
   SD_BUS_METHOD( "Unsubscribe", "", "", callMethod, 0 ),
   SD_BUS_METHOD( "Reload", "", "", callMethod, 0 ),
   SD_BUS_METHOD( "GetUnit", "s", "o", callMethod, 0 ),
   SD_BUS_METHOD( "StartUnit", "ss", "o", callMethod, 0 ),
   SD_BUS_METHOD( "StopUnit", "ss", "o", callMethod, 0 ),
   SD_BUS_METHOD( "ReloadUnit", "ss", "o", callMethod, 0 ),
   SD_BUS_METHOD( "RestartUnit", "ss", "o", callMethod, 0 ),
   SD_BUS_METHOD( "TryRestartUnit", "ss", "o", callMethod, 0 ),
   SD_BUS_METHOD( "ReloadOrRestartUnit", "ss", "o", callMethod, 0 ),
   SD_BUS_METHOD( "ReloadOrTryRestartUnit", "ss", "o", callMethod, 0 ),
   SD_BUS_SIGNAL( "JobRemoved", "uoss", 0 ),
   SD_BUS_SIGNAL( "Reloading", "b", 0 ),
   SD_BUS_VTABLE_END,
} );

const auto unitTable = std::to_array< sd_bus_vtable >( {
   SD_BUS_VTABLE_START( 0 ),
   SD_BUS_PROPERTY( "Id", "s", readUnitProperty, 0, constant ),
   SD_BUS_PROPERTY( "Description", "s", readUnitProperty, 0, constant ),
   SD_BUS_PROPERTY( "LoadState", "s", readUnitProperty, 0, constant ),
   SD_BUS_PROPERTY( "ActiveState", "s", readUnitProperty, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE ),
   SD_BUS_PROPERTY( "CanReload", "b", readUnitProperty, 0, constant ),
   SD_BUS_VTABLE_END,
} );

const auto jobTable = std::to_array< sd_bus_vtable >( {
   SD_BUS_VTABLE_START( 0 ),
   SD_BUS_PROPERTY( "JobType", "s", readJobType, 0, constant ),
   SD_BUS_VTABLE_END,
} );

} // namespace

void ScriptedManagerModel::attach( sd_bus* connection ) {
   bus = connection;
   sd_bus_track* track = nullptr;
   checked( sd_bus_track_new( bus, &track, nullptr, nullptr ), "sd_bus_track_new" );
   subscribers.reset( track );
   checked(
      sd_bus_add_object_vtable(
         bus, nullptr, managerPath, managerInterface, managerTable.data(), this ),
      "manager object" );
   checked(
      sd_bus_add_fallback_vtable(
         bus, nullptr, "/org/freedesktop/systemd1/unit", unitInterface, unitTable.data(), findUnit,
         this ),
      "unit objects" );
   checked(
      sd_bus_add_fallback_vtable(
         bus, nullptr, "/org/freedesktop/systemd1/job", "org.freedesktop.systemd1.Job",
         jobTable.data(), findJob, this ),
      "job objects" );
}

} // namespace Sodrel::Test
