// Connecting both ends, and composing messages byte by byte.
#include "PrivateConnection.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace SodrelTest {

namespace {

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

// Composes the wire format: values aligned to their size, in byte order 'l'.
struct Wire {
   std::string bytes;

   void align( std::size_t to ) { bytes.resize( ( bytes.size() + to - 1 ) / to * to ); }
   void byte( std::size_t value ) { bytes.push_back( static_cast< char >( value ) ); }
   void number( std::size_t value ) {
      align( 4 );
      for( int shift = 0; shift < 32; shift += 8 ) {
         byte( value >> shift & 0xff );
      }
   }
   // A field of a header: its code, its type, and the value.
   void field( std::size_t code, char type, std::string_view text ) {
      if( !text.empty() ) {
         beginField( code, type );
         type == 'g' ? byte( text.size() ) : number( text.size() );
         bytes.append( text ).push_back( '\0' );
      }
   }
   void field( std::size_t code, std::uint32_t value ) {
      if( value != 0 ) {
         beginField( code, 'u' );
         number( value );
      }
   }
   void beginField( std::size_t code, char type ) {
      align( 8 );
      byte( code );
      bytes.append( { '\1', type, '\0' } );
   }
};

std::string composed( const Header& header, std::uint32_t serial, const Body& body ) {
   Wire fields; // they start at a multiple of 8, so their alignment is that of the whole
   fields.field( 1, 'o', header.path );
   fields.field( 2, 's', header.interface );
   fields.field( 3, 's', header.member );
   fields.field( 4, 's', header.errorName );
   fields.field( 5, header.replyTo );
   fields.field( 7, 's', "org.freedesktop.systemd1" );
   fields.field( 8, 'g', body.signature );

   constexpr char noFlag = '\0';
   constexpr char version = '\1';
   Wire message{ { 'l', static_cast< char >( header.type ), noFlag, version } };
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
   const auto onMessage = []( sd_bus_message* message, void* self, sd_bus_error* ) {
      const auto& connection = *static_cast< PrivateConnection* >( self );
      if( connection.hear ) {
         connection.hear( message );
      }
      return 0;
   };
   checked( sd_bus_add_filter( bus_.get(), nullptr, onMessage, this ), "sd_bus_add_filter" );
}

void PrivateConnection::send( const Header& header, const Body& body ) {
   const std::string message = composed( header, ++serial_, body );
   const int socket = checked( sd_bus_get_fd( peer_.get() ), "sd_bus_get_fd" );
   const ssize_t sent = ::send( socket, message.data(), message.size(), MSG_NOSIGNAL );
   require( sent == static_cast< ssize_t >( message.size() ), "the socket takes the message" );
}

} // namespace SodrelTest
