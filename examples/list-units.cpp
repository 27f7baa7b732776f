// Prints a table of the loaded units: calls of your own on the connection of an Sdbus.
//
// "ListUnits" returns an array of structures, and MainPID and NRestarts are numbers of a service's
// own interface. Sdbus has no operation for such types; sd-bus has a function for each.
//
//    list-units
#include <Sodrel/Sodrel.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

namespace {

constexpr const char* manager = "org.freedesktop.systemd1";

struct Unit {
   std::string name, active, sub, path;
};

std::vector< Unit > loadedUnits( const Sodrel::Sdbus& systemd, sd_bus* bus ) {
   sd_bus_error error{};
   sd_bus_message* reply = nullptr;
   int result = sd_bus_call_method(
      bus, manager, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager", "ListUnits",
      &error, &reply, "" );
   // Throws if the call has failed, with systemd's message, and frees that message.
   systemd.handleSdbusCall( result, &error, "ListUnits" );

   std::vector< Unit > units;
   const char *name = "", *active = "", *sub = "", *path = "";
   result = sd_bus_message_enter_container( reply, 'a', "(ssssssouso)" );
   while( result > 0 ) {
      result = sd_bus_message_read(
         reply, "(ssssssouso)", &name, nullptr, nullptr, &active, &sub, nullptr, &path, nullptr,
         nullptr, nullptr );
      if( result > 0 ) {
         units.push_back( { name, active, sub, path } );
      }
   }
   // The strings belong to the reply, so it is released only now.
   systemd.handleSdbusMessage( reply );
   systemd.handleSdbusCall( result, nullptr, "ListUnits: unexpected reply" );
   return units;
}

std::uint32_t
serviceNumber( const Sodrel::Sdbus& systemd, sd_bus* bus, const Unit& unit, const char* property ) {
   sd_bus_error error{};
   std::uint32_t number = 0;
   const int result = sd_bus_get_property_trivial(
      bus, manager, unit.path.c_str(), "org.freedesktop.systemd1.Service", property, &error, 'u',
      &number );
   systemd.handleSdbusCall( result, &error, property );
   return number;
}

} // namespace

int main() {
   try {
      const auto systemd = Sodrel::sdbusFactory();
      // One probe for everything below. Borrowed: the next operation of Sdbus may replace it; the
      // functions that handle results never do.
      sd_bus* const bus = systemd->sdbus();
      std::printf( "%-40s %-10s %-10s %8s %8s\n", "UNIT", "ACTIVE", "SUB", "PID", "RESTARTS" );
      for( const Unit& unit : loadedUnits( *systemd, bus ) ) {
         std::printf(
            "%-40s %-10s %-10s", unit.name.c_str(), unit.active.c_str(), unit.sub.c_str() );
         if( unit.name.ends_with( ".service" ) ) {
            std::printf(
               " %8u %8u", serviceNumber( *systemd, bus, unit, "MainPID" ),
               serviceNumber( *systemd, bus, unit, "NRestarts" ) );
         }
         std::puts( "" );
      }
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
