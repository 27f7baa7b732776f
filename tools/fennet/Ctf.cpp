// The metadata and the streams of an export.
#include "Ctf.h"

#include "Output.h"

#include <bit>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>

#include <fmt/format.h>

namespace Fennet {

namespace {

constexpr std::uint32_t packetMagic = 0xc1fc1fc1;

// A string literal of the metadata language.
std::string literal( std::string_view text ) {
   std::string quoted = "\"";
   for( const char c : text ) {
      const auto byte = static_cast< unsigned char >( c );
      if( byte < 0x20 || byte >= 0x7f ) {
         quoted += '?';
      } else {
         quoted += c == '"' || c == '\\' ? "\\" : "";
         quoted += c;
      }
   }
   return quoted + '"';
}

std::string_view typeOf( std::string_view code ) {
   return code == "p"    ? "string"
          : code == "b"  ? "uint8_t"
          : code == "si" ? "int32_t"
          : code == "ui" ? "uint32_t"
          : code == "sl" ? "int64_t"
                         : "uint64_t";
}

// The kinds of events, numbered as they first come.
class Events {
 public:
   std::uint32_t idOf( const std::shared_ptr< const Description >& description ) {
      const auto [found, isNew] = ids_.try_emplace( description, std::uint32_t( ids_.size() ) );
      if( isNew ) {
         declare( *description, found->second );
      }
      return found->second;
   }

   [[nodiscard]] const std::string& declarations() const { return declarations_; }

 private:
   void declare( const Description& description, std::uint32_t id ) {
      std::string fields = "string text;";
      for( std::size_t at = 0; at < description.codes.size(); ++at ) {
         fields += fmt::format( " {} arg{};", typeOf( description.codes[at] ), at + 1 );
      }
      declarations_ += fmt::format(
         "event {{ name = {}; id = {}; stream_id = 0; fields := struct {{ {} }}; }};\n",
         literal( fmt::format(
            "{}/{} {}:{} {}", description.facility, description.level, description.sourceFile,
            description.line, description.function ) ),
         id, fields );
   }

   std::map< std::shared_ptr< const Description >, std::uint32_t > ids_;
   std::string declarations_;
};

// One stream: a single packet with all records of a thread.
class Stream {
 public:
   void add( const TimedRecord& timed, std::uint32_t eventId ) {
      begin_ = events_.empty() ? timed.time : begin_;
      end_ = timed.time;
      append( events_, eventId );
      append( events_, timed.time );
      appendText( textOf( timed.record ) );
      const Record& record = timed.record;
      for( std::size_t at = 0; at < record.description->codes.size(); ++at ) {
         const std::string_view code = record.description->codes[at];
         // An argument that was cut is an empty text or zero; the text shows that it is missing.
         const Argument argument = at < record.arguments.size() ? record.arguments[at]
                                   : code == "p"                ? Argument( std::string() )
                                                                : Argument( std::uint64_t{} );
         appendArgument( argument, code );
      }
   }

   [[nodiscard]] std::string packet( const TraceReader::Origin& origin ) const {
      std::string context;
      append( context, std::int32_t{ origin.pid } );
      append( context, std::int32_t{ origin.tid } );
      context.append( origin.program ).push_back( '\0' );

      std::string packet;
      append( packet, packetMagic );
      append( packet, std::uint32_t{ 0 } ); // the stream's class
      append( packet, begin_ );
      append( packet, end_ );
      const std::uint64_t bytes =
         packet.size() + 2 * sizeof( std::uint64_t ) + context.size() + events_.size();
      append( packet, bytes * 8 ); // of content
      append( packet, bytes * 8 ); // with padding, of which there is none
      return packet + context + events_;
   }

 private:
   template< typename Value >
   static void append( std::string& bytes, Value value ) {
      bytes.append( reinterpret_cast< const char* >( &value ), sizeof value );
   }

   void appendText( std::string_view text ) {
      // A string of the format ends with its first NUL.
      for( const char c : text ) {
         events_ += c == '\0' ? '?' : c;
      }
      events_ += '\0';
   }

   void appendArgument( const Argument& argument, std::string_view code ) {
      if( const auto* text = std::get_if< std::string >( &argument ) ) {
         appendText( *text );
         return;
      }
      const auto number = std::visit(
         []< typename T >( const T& value ) {
            if constexpr( std::is_same_v< T, std::string > ) {
               return std::uint64_t{};
            } else {
               return static_cast< std::uint64_t >( value );
            }
         },
         argument );
      if( code == "b" ) {
         append( events_, static_cast< std::uint8_t >( number ) );
      } else if( code == "si" || code == "ui" ) {
         append( events_, static_cast< std::uint32_t >( number ) );
      } else {
         append( events_, number );
      }
   }

   std::int64_t begin_ = 0;
   std::int64_t end_ = 0;
   std::string events_;
};

std::string metadata( const Events& events ) {
   const std::string_view byteOrder = std::endian::native == std::endian::little ? "le" : "be";
   return fmt::format(
      R"(/* CTF 1.8 */
typealias integer {{ size = 8; align = 8; signed = false; }} := uint8_t;
typealias integer {{ size = 32; align = 8; signed = false; }} := uint32_t;
typealias integer {{ size = 32; align = 8; signed = true; }} := int32_t;
typealias integer {{ size = 64; align = 8; signed = false; }} := uint64_t;
typealias integer {{ size = 64; align = 8; signed = true; }} := int64_t;
trace {{
   major = 1; minor = 8; byte_order = {};
   packet.header := struct {{ uint32_t magic; uint32_t stream_id; }};
}};
clock {{ name = "realtime"; freq = 1000000000; absolute = true; }};
typealias integer {{ size = 64; align = 8; signed = false; map = clock.realtime.value; }} := time_t;
stream {{
   id = 0;
   packet.context := struct {{
      time_t timestamp_begin; time_t timestamp_end; uint64_t content_size; uint64_t packet_size;
      int32_t pid; int32_t tid; string program;
   }};
   event.header := struct {{ uint32_t id; time_t timestamp; }};
}};
{})",
      byteOrder, events.declarations() );
}

void writeFile( const std::filesystem::path& path, const std::string& bytes ) {
   std::ofstream file( path, std::ios::binary );
   file << bytes;
   file.close();
   if( !file ) {
      throw std::system_error( errno, std::generic_category(), path.string() );
   }
}

} // namespace

void exportCtf( const std::vector< TimedRecord >& records, const std::filesystem::path& folder ) {
   if( !std::filesystem::create_directory( folder ) ) {
      throw std::system_error( EEXIST, std::generic_category(), folder.string() );
   }
   Events events;
   std::map< std::shared_ptr< const TraceReader::Origin >, Stream > streams;
   for( const TimedRecord& record : records ) {
      streams[record.origin].add( record, events.idOf( record.record.description ) );
   }
   writeFile( folder / "metadata", metadata( events ) );
   std::size_t number = 0;
   for( const auto& [origin, stream] : streams ) {
      writeFile( folder / fmt::format( "stream-{}", number++ ), stream.packet( *origin ) );
   }
}

} // namespace Fennet
