// Uses reflection to list the members of a monitor's type and to set its time limit to 0.
//
//    set-timeout
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <cstdio>

int main() {
   try {
      auto systemd = Sodrel::sdbusFactory();
      auto monitor = Sodrel::jobRemovedMonitorFactory( systemd->sdbus() );

      for( auto type = monitor->typeData(); type != Tessel::nodeType;
           type = Tessel::baseOf( type ) ) {
         const Tessel::TypeDesc& desc = type.module->types[type.index];
         std::printf( "%s\n", desc.name.data() );
         for( const auto& member :
              type.module->members.subspan( desc.firstMember, desc.memberCount ) ) {
            std::printf( "   %u %s\n", member.id, member.name.data() );
         }
      }

      const Tessel::Member syncTimeout = Tessel::memberOf( *monitor, "syncTimeout" );
      Tessel::Interval limit;
      syncTimeout.read( *monitor, &limit );
      std::printf( "limit %f s\n", limit.seconds() );
      limit = Tessel::Interval( 0 );
      syncTimeout.write( *monitor, &limit );
      monitor->wait( "/org/freedesktop/systemd1/job/4294967295" );
   } catch( const Sodrel::SdbusSyncException& error ) {
      std::printf( "%s\n", error.what() );
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
