// A monitor connection, and marks on the wire that tell how far to read it.
#include <support/PrivateBusRecord.h>

#include <cstdint>

#include <support/ScriptedManagerMessages.h>

namespace Sodrel::Test {

namespace {

constexpr const char* busName = "org.freedesktop.DBus";

std::string orEmpty( const char* text ) {
   return text == nullptr ? "" : text;
}

} // namespace

PrivateBusRecord::PrivateBusRecord( const PrivateBus& bus )
   : marker( busAt( bus.address() ) ), monitor( busAt( bus.address(), true ) ) {
   checked(
      sd_bus_call_method(
         monitor.get(), busName, "/org/freedesktop/DBus", "org.freedesktop.DBus.Monitoring",
         "BecomeMonitor", nullptr, nullptr, "asu", 1, "type='method_call'", 0 ),
      "BecomeMonitor" );
   sd_bus_creds* owner = nullptr;
   if( sd_bus_get_name_creds( marker.get(), managerName, SD_BUS_CREDS_UNIQUE_NAME, &owner ) >= 0 ) {
      const char* name = nullptr;
      checked( sd_bus_creds_get_unique_name( owner, &name ), "sd_bus_creds_get_unique_name" );
      supporters.insert( name );
      sd_bus_creds_unref( owner );
   }
}

const std::vector< RecordedCall >& PrivateBusRecord::calls() {
   // The bus may read the first mark before a call that lay beside it, but never the second.
   for( int round = 0; round < 2; ++round ) {
      const std::string mark = "sodrel.test.Mark" + std::to_string( ++marks );
      sd_bus_call_method(
         marker.get(), busName, "/org/freedesktop/DBus", busName, "NameHasOwner", nullptr, nullptr,
         "s", mark.c_str() );
      if( !collectUntil( "NameHasOwner " + mark ) ) {
         break;
      }
   }
   return recorded;
}

std::vector< std::string > PrivateBusRecord::texts() {
   std::vector< std::string > result;
   for( const RecordedCall& call : calls() ) {
      result.push_back( call.text );
   }
   return result;
}

void PrivateBusRecord::clear() {
   calls();
   recorded.clear();
}

// Returns false if the bus has ended before the mark.
bool PrivateBusRecord::collectUntil( const std::string& mark ) {
   for( ;; ) {
      sd_bus_message* raw = nullptr;
      const int processed = sd_bus_process( monitor.get(), &raw );
      const MessagePtr message( raw );
      if( processed < 0 || ( processed == 0 && sd_bus_wait( monitor.get(), UINT64_MAX ) < 0 ) ) {
         return false;
      }
      if( raw != nullptr && sd_bus_message_is_method_call( raw, nullptr, nullptr ) > 0 ) {
         const std::string text = messageText( raw );
         if( text == mark ) {
            return true;
         }
         add( raw, text );
      }
   }
}

void PrivateBusRecord::add( sd_bus_message* message, const std::string& text ) {
   const std::string sender = orEmpty( sd_bus_message_get_sender( message ) );
   const std::string path = orEmpty( sd_bus_message_get_path( message ) );
   // Only the support asks for names.
   if( text.starts_with( "RequestName" ) ) {
      supporters.insert( sender );
   }
   const bool wanted = path.starts_with( managerPath ) || text.starts_with( "AddMatch" ) ||
                       text.starts_with( "RemoveMatch" );
   if( wanted && !supporters.contains( sender ) ) {
      recorded.push_back( { sender, path, text } );
   }
}

} // namespace Sodrel::Test
