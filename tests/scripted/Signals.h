// The signals of systemd that the monitors listen to, and the lines that reading them leaves.
#pragma once

#include <support/ScriptedSdbus.h>

#include <cstdint>
#include <initializer_list>
#include <string>

namespace Sodrel::Test {

inline constexpr const char* managerPath = "/org/freedesktop/systemd1";
inline constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
inline constexpr const char* jobPath = "/org/freedesktop/systemd1/job/42";
inline constexpr const char* fooPath = "/org/freedesktop/systemd1/unit/foo_2eservice";

inline Signal managerSignal( const char* member, Content content ) {
   return { managerPath, managerInterface, member, std::move( content ) };
}

inline Signal jobRemoved( std::uint32_t id, std::optional< std::string > result ) {
   const std::string path = "/org/freedesktop/systemd1/job/" + std::to_string( id );
   return managerSignal(
      "JobRemoved", join( { u( id ), o( path ), s( "foo.service" ), s( std::move( result ) ) } ) );
}

inline Signal reloading( bool begins ) {
   return managerSignal( "Reloading", b( begins ) );
}

// A change of properties of foo.service.
inline Signal propertiesChanged( const char* interface, const Content& changed ) {
   return { fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged",
            join( { s( interface ), changed, texts( {} ) } ) };
}

inline Content activeState( const char* state ) {
   return property( "ActiveState", variant( "s", s( state ) ) );
}

inline Signal unitBecomes( const char* state ) {
   return propertiesChanged(
      "org.freedesktop.systemd1.Unit", properties( { activeState( state ) } ) );
}

inline constexpr const char* jobRemovedRead = "sd_bus_message_read( JobRemoved, uoss )\n"
                                              "JobRemoved callback gives 0";
inline constexpr const char* reloadingRead = "sd_bus_message_read( Reloading, b )\n"
                                             "Reloading callback gives 0";
inline constexpr const char* activeStateRead =
   "sd_bus_message_read( PropertiesChanged, s )\n"
   "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )\n"
   "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
   "sd_bus_message_read( PropertiesChanged, s )\n"
   "sd_bus_message_read( PropertiesChanged, v, s )\n"
   "sd_bus_message_exit_container( PropertiesChanged )\n"
   "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
   "sd_bus_message_exit_container( PropertiesChanged )\n"
   "PropertiesChanged callback gives 0";

inline std::string
matched( const char* bus, const char* path, const char* interface, const char* member ) {
   return std::string( "sd_bus_match_signal( " ) + bus + ", slot, org.freedesktop.systemd1, " +
          path + ", " + interface + ", " + member + ", callback, userdata )";
}

} // namespace Sodrel::Test
