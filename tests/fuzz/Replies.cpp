// Fuzzes the handling of replies: a byte that selects what is read, then a body or a text.
#include "PrivateConnection.h"

#include <Sodrel/Sodrel.h>

#include <cstring>
#include <iterator>

namespace SodrelTest {

using Sodrel::Sdbus;

namespace {

constexpr std::uint8_t methodReturn = SD_BUS_MESSAGE_METHOD_RETURN;
constexpr std::uint8_t methodError = SD_BUS_MESSAGE_METHOD_ERROR;

// The connection that the next sd_bus_open_system returns.
PrivateConnection* next = nullptr;

const Body systemState{ "v", { "\1s\0\0\7\0\0\0running\0", 16 } };

// A client whose connection has been opened and probed, and that waits for the reply to its next
// call. sd-bus numbers the calls of a connection from 1.
class Client {
 public:
   Client() {
      wire_.send( { .type = methodReturn, .replyTo = 1 }, systemState );
      next = &wire_;
      client_ = Sodrel::sdbusFactory();
      wire_.send( { .type = methodReturn, .replyTo = 2 }, systemState );
   }

   // The reply that the call receives: the harmless one if sd-bus drops the hostile one.
   void repliesAre( Header header, const Body& hostile, const Body& harmless ) {
      header.replyTo = 3;
      wire_.send( header, hostile );
      wire_.send( header, harmless );
   }

   Sdbus& operator*() { return *client_; }

 private:
   PrivateConnection wire_; // outlives the client
   Tessel::Ptr< Sdbus > client_;
};

// Returns the message with this body, or null if sd-bus drops it.
MessagePtr received( PrivateConnection& connection, const Body& body ) {
   connection.send( { .path = "/", .interface = "a.b", .member = "C" }, body );
   sd_bus_message* message = nullptr;
   while( sd_bus_process( connection.bus(), &message ) > 0 && !message ) {
   }
   return MessagePtr( message );
}

// Runs each reader alone on any kind of message, and compares its result with what `value` reads of
// the same basic type.
template< char type, typename Basic, typename Value, typename Reader >
void readAlone( Input& input, const Value& value, const Reader& reader ) {
   static Client client;
   PrivateConnection connection;
   if( MessagePtr message = received( connection, takeBody( input ) ) ) {
      Basic basic{};
      const int read = sd_bus_message_read_basic( message.get(), type, &basic );
      const std::string expected =
         read < 0 ? std::string( "Sodrel::SdbusMessageException: reading: " ) + strerror( -read )
                  : value( read > 0 ? basic : Basic{} );
      sd_bus_message_rewind( message.get(), 1 );
      requireSame( outcomeOf( [&] { return reader( *client, message.release() ); } ), expected );
   }
}

void readPath( Input& input ) {
   const auto text = []( const char* path ) { return std::string( path ? path : "" ); };
   readAlone< 'o', const char* >( input, text, []( const Sdbus& client, sd_bus_message* message ) {
      return std::string( client.handleSdbusMessageO( message, "reading" ) );
   } );
}

void readBoolean( Input& input ) {
   const auto text = []( int value ) { return std::string( value ? "true" : "false" ); };
   readAlone< 'b', int >( input, text, [&]( const Sdbus& client, sd_bus_message* message ) {
      return text( client.handleSdbusMessageB( message, "reading" ) );
   } );
}

// The operations that use them.

void callForPath( Input& input ) {
   Client client;
   client.repliesAre( { .type = methodReturn }, takeBody( input ), { "o", { "\1\0\0\0/\0", 6 } } );
   const std::string outcome =
      outcomeOf( [&] { return std::string( ( *client ).asyncManagerCallSO( "GetUnit", "a" ) ); } );
   require(
      outcome.starts_with( '/' ) ||
         outcome.starts_with( "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSO, message "
                              "read failed when calling GetUnit a: " ),
      "the call returns a path or reports why there is none" );
}

void readProperty( Input& input ) {
   Client client;
   client.repliesAre(
      { .type = methodReturn }, takeBody( input ), { "v", { "\1b\0\0\1\0\0\0", 8 } } );
   const std::string outcome = outcomeOf(
      [&] { return std::string( ( *client ).managerPropertyB( "Tainted" ) ? "true" : "false" ); } );
   require(
      outcome == "true" || outcome == "false" ||
         outcome.starts_with( "Sodrel::SdbusCallException: Sdbus::managerPropertyB, manager "
                              "property Tainted read failed" ) ||
         outcome.starts_with( "Sodrel::SdbusMessageException: Sdbus::managerPropertyB, message "
                              "handling failed for property Tainted: " ),
      "the property is read or the exception says why not" );
}

void callWithError( Input& input ) {
   Client client;
   client.repliesAre(
      { .type = methodError, .errorName = "org.example.Refused" }, takeBody( input ), {} );
   const std::string outcome = outcomeOf( [&] {
      ( *client ).asyncManagerCall( "Reload" );
      return std::string( "returned" );
   } );
   require(
      outcome.starts_with(
         "Sodrel::SdbusCallException: Sdbus::asyncManagerCall, sd-bus call Reload failed" ),
      "the call is refused" );
}

} // namespace

void fuzz( Input input ) {
   void ( *const readers[] )( Input& ) = { readPath, readBoolean, callForPath, readProperty,
                                           callWithError };
   readers[input.byte() % std::size( readers )]( input );
}

} // namespace SodrelTest

int sd_bus_open_system( sd_bus** bus ) {
   *bus = SodrelTest::next->release();
   return 0;
}
