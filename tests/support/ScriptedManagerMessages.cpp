// Walking along a signature and its values at the same time, and sending the result.
#include <support/ScriptedManagerMessages.h>

#include <cerrno>
#include <stdexcept>
#include <string_view>

#include <support/BusPointers.h>

namespace Sodrel::Test {

namespace {

// The number of characters of the complete type at the beginning of a signature.
size_t typeLength( std::string_view signature ) {
   if( signature.front() == 'a' ) {
      return 1 + typeLength( signature.substr( 1 ) );
   }
   size_t depth = 0;
   size_t length = 0;
   do {
      const char type = signature.at( length++ );
      if( type == '(' || type == '{' ) {
         ++depth;
      } else if( type == ')' || type == '}' ) {
         --depth;
      }
   } while( depth > 0 );
   return length;
}

class BodyWriter {
 public:
   BodyWriter( sd_bus_message* target, const Words& source, size_t first )
      : message( target ), words( source ), at( first ) {}

   void appendAll( std::string_view signature ) {
      while( !signature.empty() ) {
         const size_t length = typeLength( signature );
         append( signature.substr( 0, length ) );
         signature.remove_prefix( length );
      }
   }

   const std::string& next() { return words.at( at++ ); }

 private:
   void append( std::string_view type ) {
      switch( type.front() ) {
      case 'a': {
         const std::string_view element = type.substr( 1 );
         enter( 'a', element );
         for( auto left = std::stoul( next() ); left > 0; --left ) {
            append( element );
         }
         leave();
         break;
      }
      case 'v': {
         const std::string contents = next();
         enter( 'v', contents );
         appendAll( contents );
         leave();
         break;
      }
      case '(':
      case '{': {
         const std::string_view contents = type.substr( 1, type.size() - 2 );
         enter( type.front() == '(' ? 'r' : 'e', contents );
         appendAll( contents );
         leave();
         break;
      }
      default:
         appendBasic( type.front(), next() );
      }
   }

   void appendBasic( char type, const std::string& value ) {
      switch( type ) {
      case 's':
      case 'o':
      case 'g':
         appendRaw( type, value.c_str() );
         break;
      case 'b':
         appendNumber( type, static_cast< int >( value == asText( true ) ) );
         break;
      case 'd':
         appendNumber( type, std::stod( value ) );
         break;
      case 'y':
         appendNumber( type, static_cast< uint8_t >( std::stoul( value ) ) );
         break;
      case 'n':
      case 'q':
         appendNumber( type, static_cast< uint16_t >( std::stol( value ) ) );
         break;
      case 'i':
      case 'u':
         appendNumber( type, static_cast< uint32_t >( std::stol( value ) ) );
         break;
      case 'x':
         appendNumber( type, static_cast< int64_t >( std::stoll( value ) ) );
         break;
      case 't':
         appendNumber( type, static_cast< uint64_t >( std::stoull( value ) ) );
         break;
      default:
         throw std::invalid_argument( std::string( "no value of D-Bus type " ) + type );
      }
   }

   template< typename Number >
   void appendNumber( char type, Number value ) {
      appendRaw( type, &value );
   }

   void appendRaw( char type, const void* value ) {
      checked( sd_bus_message_append_basic( message, type, value ), "sd_bus_message_append_basic" );
   }

   void enter( char type, std::string_view contents ) {
      checked(
         sd_bus_message_open_container( message, type, std::string( contents ).c_str() ),
         "sd_bus_message_open_container" );
   }

   void leave() {
      checked( sd_bus_message_close_container( message ), "sd_bus_message_close_container" );
   }

   sd_bus_message* message;
   const Words& words;
   size_t at;
};

template< typename T >
std::string readBasic( sd_bus_message* message, char type ) {
   T value{};
   checked( sd_bus_message_read_basic( message, type, &value ), "sd_bus_message_read_basic" );
   return asText( value );
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
      text += text.empty() ? "" : " ";
      switch( type ) {
      case 's':
      case 'o':
         text += readBasic< const char* >( message, type );
         break;
      case 'b':
         text += readBasic< int >( message, type ) == "0" ? asText( false ) : asText( true );
         break;
      case 'u':
         text += readBasic< uint32_t >( message, type );
         break;
      case 't':
         text += readBasic< uint64_t >( message, type );
         break;
      default:
         checked( sd_bus_message_skip( message, nullptr ), "sd_bus_message_skip" );
         text += type;
      }
   }
}

void send( sd_bus_message* message ) {
   const int result = sd_bus_send( sd_bus_message_get_bus( message ), message, nullptr );
   const bool disconnected = result == -ENOTCONN || result == -ECONNRESET || result == -EPIPE;
   checked( disconnected ? 0 : result, "sd_bus_send" );
}

} // namespace

void appendBody( sd_bus_message* message, const Words& words, size_t at ) {
   BodyWriter writer( message, words, at );
   writer.appendAll( writer.next() );
}

void emitSignal( sd_bus* bus, const Words& words ) {
   if( bus == nullptr ) {
      return;
   }
   sd_bus_message* raw = nullptr;
   checked(
      sd_bus_message_new_signal(
         bus, &raw, words.at( 0 ).c_str(), words.at( 1 ).c_str(), words.at( 2 ).c_str() ),
      "sd_bus_message_new_signal" );
   const MessagePtr message( raw );
   appendBody( raw, words, 3 );
   send( raw );
}

void sendReply( sd_bus_message* call, const Words& words ) {
   sd_bus_message* raw = nullptr;
   checked( sd_bus_message_new_method_return( call, &raw ), "sd_bus_message_new_method_return" );
   const MessagePtr message( raw );
   appendBody( raw, words );
   send( raw );
}

void sendError( sd_bus_message* call, const Words& words ) {
   const sd_bus_error error{ words.at( 0 ).c_str(), words.size() > 1 ? words[1].c_str() : nullptr,
                             0 };
   sd_bus_message* raw = nullptr;
   checked(
      sd_bus_message_new_method_error( call, &raw, &error ), "sd_bus_message_new_method_error" );
   const MessagePtr message( raw );
   send( raw );
}

std::string messageText( sd_bus_message* message ) {
   const char* member = sd_bus_message_get_member( message );
   std::string text = member == nullptr ? "" : member;
   appendValues( message, text );
   return text;
}

} // namespace Sodrel::Test
