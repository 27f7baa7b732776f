// A monitor connection, and marks on the wire that tell how far to read it.
#include <support/PrivateBusRecord.h>

#include <cstdint>

#include <support/BusMessages.h>
#include <support/SystemdNames.h>

namespace SodrelTest {

namespace {

constexpr const char* busName = "org.freedesktop.DBus";

std::string orEmpty( const char* text ) {
   return text == nullptr ? "" : text;
}

} // namespace

PrivateBusRecord::PrivateBusRecord( const PrivateBus& bus )
   : marker_( busAt( bus.address() ) ),
     monitor_( busAt( bus.address(), true ) ),
     supporters_{ ownerOf( marker_.get(), systemdName ) } {
   checked(
      sd_bus_call_method(
         monitor_.get(), busName, "/org/freedesktop/DBus", "org.freedesktop.DBus.Monitoring",
         "BecomeMonitor", nullptr, nullptr, "asu", 0, 0 ),
      "BecomeMonitor" );
}

const std::vector< RecordedCall >& PrivateBusRecord::calls() {
   collect();
   return calls_;
}

std::vector< std::string > PrivateBusRecord::texts() {
   std::vector< std::string > result;
   for( const RecordedCall& call : calls() ) {
      result.push_back( call.text );
   }
   return result;
}

const std::vector< std::string >& PrivateBusRecord::said() {
   collect();
   return said_;
}

void PrivateBusRecord::clear() {
   collect();
   calls_.clear();
   said_.clear();
}

void PrivateBusRecord::collect() {
   // The bus may read the first mark before a call that was sent at the same time, but never the
   // second one.
   for( int round = 0; round < 2; ++round ) {
      const std::string mark = "sodrel.test.Mark" + std::to_string( ++marks_ );
      ownerOf( marker_.get(), mark.c_str() );
      std::string text;
      while( text != "GetNameOwner " + mark ) {
         sd_bus_message* raw = nullptr;
         const int processed =
            checked( sd_bus_process( monitor_.get(), &raw ), "sd_bus_process of a monitor" );
         const MessagePtr message( raw );
         if( raw != nullptr ) {
            text = messageText( raw );
            add( raw, text );
         } else if( processed == 0 ) {
            checked( sd_bus_wait( monitor_.get(), UINT64_MAX ), "sd_bus_wait of a monitor" );
         }
      }
   }
}

void PrivateBusRecord::add( sd_bus_message* message, const std::string& text ) {
   uint8_t type = 0;
   checked( sd_bus_message_get_type( message, &type ), "sd_bus_message_get_type" );
   const std::string sender = orEmpty( sd_bus_message_get_sender( message ) );
   if( type != SD_BUS_MESSAGE_METHOD_CALL ) {
      if( supporters_.contains( sender ) ) {
         said_.push_back( text );
      }
      return;
   }
   // Only the test support requests names.
   if( text.starts_with( "RequestName" ) ) {
      supporters_.insert( sender );
   }
   const std::string path = orEmpty( sd_bus_message_get_path( message ) );
   const bool wanted = path.starts_with( managerPath ) || text.starts_with( "AddMatch" ) ||
                       text.starts_with( "RemoveMatch" );
   if( wanted && !supporters_.contains( sender ) ) {
      calls_.push_back( { sender, path, text } );
   }
}

} // namespace SodrelTest
