// Composing, sending and reading messages, and systemd's object paths.
#include <support/BusMessages.h>

#include <cerrno>
#include <cstdlib>

namespace SodrelTest {

namespace {

void sent( int result ) {
   const bool disconnected = result == -ENOTCONN || result == -ECONNRESET || result == -EPIPE;
   checked( disconnected ? 0 : result, "sending a message" );
}

template< typename T >
T readBasic( sd_bus_message* message, char type ) {
   T value{};
   checked( sd_bus_message_read_basic( message, type, &value ), "sd_bus_message_read_basic" );
   return value;
}

void appendValues( sd_bus_message* message, std::string& text ) {
   char type = 0;
   const char* contents = nullptr;
   while( checked( sd_bus_message_peek_type( message, &type, &contents ), "peek_type" ) > 0 ) {
      if( contents != nullptr ) {
         checked( sd_bus_message_enter_container( message, type, contents ), "enter_container" );
         appendValues( message, text );
         checked( sd_bus_message_exit_container( message ), "exit_container" );
         continue;
      }
      text += ' ';
      switch( type ) {
      case 's':
      case 'o':
         text += readBasic< const char* >( message, type );
         break;
      case 'b':
         text += readBasic< int >( message, type ) != 0 ? "true" : "false";
         break;
      case 'u':
         text += std::to_string( readBasic< uint32_t >( message, type ) );
         break;
      case 't':
         text += std::to_string( readBasic< uint64_t >( message, type ) );
         break;
      default:
         checked( sd_bus_message_skip( message, nullptr ), "sd_bus_message_skip" );
         text += type;
      }
   }
}

} // namespace

std::string unitPath( const std::string& name ) {
   char* path = nullptr;
   checked(
      sd_bus_path_encode( "/org/freedesktop/systemd1/unit", name.c_str(), &path ),
      "sd_bus_path_encode" );
   const std::unique_ptr< char, Releaser< std::free > > owned( path );
   return path;
}

std::string jobOf( uint32_t id ) {
   return "/org/freedesktop/systemd1/job/" + std::to_string( id );
}

void sendSignal(
   sd_bus* bus, const std::string& path, const std::string& interface, const std::string& member,
   const Body& content, const std::string& receiver ) {
   sd_bus_message* raw = nullptr;
   checked(
      sd_bus_message_new_signal( bus, &raw, path.c_str(), interface.c_str(), member.c_str() ),
      "sd_bus_message_new_signal" );
   const MessagePtr signal( raw );
   if( !receiver.empty() ) {
      checked( sd_bus_message_set_destination( raw, receiver.c_str() ), "receiver" );
   }
   checked( content.append( raw ), "body of a signal" );
   sent( sd_bus_send( bus, raw, nullptr ) );
}

void sendReply( sd_bus_message* call, const Body& content ) {
   sd_bus_message* raw = nullptr;
   checked( sd_bus_message_new_method_return( call, &raw ), "sd_bus_message_new_method_return" );
   const MessagePtr reply( raw );
   checked( content.append( raw ), "body of a reply" );
   sent( sd_bus_send( nullptr, raw, nullptr ) );
}

void sendError(
   sd_bus_message* call, const std::string& name, const std::optional< std::string >& message ) {
   const sd_bus_error error{ name.c_str(), message ? message->c_str() : nullptr, 0 };
   sent( sd_bus_reply_method_error( call, &error ) );
}

std::string messageText( sd_bus_message* message ) {
   const sd_bus_error* const error = sd_bus_message_get_error( message );
   const char* const member = sd_bus_message_get_member( message );
   std::string text = error != nullptr ? error->name : member != nullptr ? member : "reply";
   appendValues( message, text );
   return text;
}

} // namespace SodrelTest
