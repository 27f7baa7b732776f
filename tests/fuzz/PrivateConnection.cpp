// Connecting both ends, and composing messages byte by byte.
#include "PrivateConnection.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace SodrelTest {

namespace {

using Sodrel::Test::BusPtr;
using Sodrel::Test::checked;

BusPtr endAt( int fd, bool server ) {
   sd_bus* raw = nullptr;
   checked( sd_bus_new( &raw ), "sd_bus_new" );
   BusPtr bus( raw );
   checked( sd_bus_set_fd( raw, fd, fd ), "sd_bus_set_fd" );
   checked( sd_bus_set_anonymous( raw, 1 ), "sd_bus_set_anonymous" );
   if( server ) {
      checked( sd_bus_set_server( raw, 1, sd_id128_t{ { 1 } } ), "sd_bus_set_server" );
   }
   checked( sd_bus_start( raw ), "sd_bus_start" );
   return bus;
}

// Composes what the wire holds: values aligned to their size, in the byte order 'l'.
class Wire {
 public:
   void align( std::size_t to ) { bytes.resize( ( bytes.size() + to - 1 ) / to * to ); }
   void byte( unsigned value ) { bytes.push_back( static_cast< char >( value ) ); }
   void number( std::size_t value ) {
      align( 4 );
      for( int shift = 0; shift < 32; shift += 8 ) {
         byte( value >> shift & 0xff );
      }
   }
   void signature( std::string_view text ) {
      byte( static_cast< unsigned >( text.size() ) );
      bytes.append( text ).push_back( '\0' );
   }
   void string( std::string_view text ) {
      number( text.size() );
      bytes.append( text ).push_back( '\0' );
   }
   // A header field holds the code of what it is and its value as a variant.
   void field( unsigned code, std::string_view type, std::string_view text ) {
      if( !text.empty() ) {
         align( 8 );
         byte( code );
         signature( type );
         type == "g" ? signature( text ) : string( text );
      }
   }
   void field( unsigned code, std::uint32_t value ) {
      if( value != 0 ) {
         align( 8 );
         byte( code );
         signature( "u" );
         number( value );
      }
   }

   std::string bytes;
};

std::string composed( const Header& header, std::uint32_t serial, const Body& body ) {
   Wire fields; // they start at a multiple of 8, so their alignment is that of the whole
   fields.field( 1, "o", header.path );
   fields.field( 2, "s", header.interface );
   fields.field( 3, "s", header.member );
   fields.field( 4, "s", header.errorName );
   fields.field( 5, header.replyTo );
   fields.field( 7, "s", "org.freedesktop.systemd1" );
   fields.field( 8, "g", body.signature );

   Wire message;
   message.byte( 'l' );
   message.byte( header.type );
   message.byte( 0 ); // no flag
   message.byte( 1 ); // the protocol's version
   message.number( body.bytes.size() );
   message.number( serial );
   message.number( fields.bytes.size() );
   message.bytes += fields.bytes;
   message.align( 8 );
   return message.bytes.append( body.bytes );
}

} // namespace

Body takeBody( Input& input ) {
   const std::size_t signatureSize = input.byte();
   const std::size_t size = input.word();
   const std::string_view signature = input.text( signatureSize );
   return { signature, input.text( size ) };
}

PrivateConnection::PrivateConnection() {
   int ends[2] = {};
   constexpr int type = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
   checked( socketpair( AF_UNIX, type, 0, ends ) < 0 ? -errno : 0, "socketpair" );
   bus_ = endAt( ends[0], false );
   peer_ = endAt( ends[1], true );
   while( sd_bus_is_ready( bus_.get() ) == 0 || sd_bus_is_ready( peer_.get() ) == 0 ) {
      checked( sd_bus_process( bus_.get(), nullptr ), "sd_bus_process" );
      checked( sd_bus_process( peer_.get(), nullptr ), "sd_bus_process" );
   }
   checked(
      sd_bus_add_filter( bus_.get(), nullptr, &PrivateConnection::onMessage, this ),
      "sd_bus_add_filter" );
}

PrivateConnection::~PrivateConnection() = default;

void PrivateConnection::hearWith( std::function< void( sd_bus_message* ) > hear ) {
   hear_ = std::move( hear );
}

void PrivateConnection::send( const Header& header, const Body& body ) {
   const std::string message = composed( header, ++serial_, body );
   const int socket = checked( sd_bus_get_fd( peer_.get() ), "sd_bus_get_fd" );
   const ssize_t sent = ::send( socket, message.data(), message.size(), MSG_NOSIGNAL );
   require( sent == static_cast< ssize_t >( message.size() ), "the socket takes the message" );
}

int PrivateConnection::onMessage( sd_bus_message* message, void* connection, sd_bus_error* ) {
   const auto& hear = static_cast< PrivateConnection* >( connection )->hear_;
   if( hear ) {
      hear( message );
   }
   return 0;
}

} // namespace SodrelTest
