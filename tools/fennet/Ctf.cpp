// Writing the metadata and the streams of an export.
#include "Ctf.h"

#include "Output.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <variant>

#include <fmt/format.h>

namespace Fennet {

namespace {

// A string literal of the metadata language.
std::string literal( std::string_view text ) {
   std::string quoted = "\"";
   for( const char c : text ) {
      const bool isPrintable = c >= ' ' && c <= '~';
      quoted += c == '"' || c == '\\' ? "\\" : "";
      quoted += isPrintable ? c : '?';
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

template< typename Value >
void append( std::string& bytes, Value value ) {
   bytes.append( reinterpret_cast< const char* >( &value ), sizeof value );
}

void appendText( std::string& bytes, std::string text ) {
   // Strings in CTF are NUL-terminated.
   std::replace( text.begin(), text.end(), '\0', '?' );
   bytes += text + '\0';
}

void appendNumber( std::string& bytes, std::uint64_t number, std::string_view code ) {
   if( code == "b" ) {
      append( bytes, static_cast< std::uint8_t >( number ) );
   } else if( code == "si" || code == "ui" ) {
      append( bytes, static_cast< std::uint32_t >( number ) );
   } else {
      append( bytes, number );
   }
}

// The beginning of a packet. Its size is known only when the packet is complete.
std::string packetHead(
   std::int64_t begin, std::int64_t end, std::uint64_t size, const TraceReader::Origin& origin ) {
   std::string head;
   append( head, std::uint32_t{ 0xc1fc1fc1 } ); // the magic number of packets
   append( head, std::uint32_t{ 0 } );          // the stream's class
   append( head, begin );
   append( head, end );
   append( head, size * 8 ); // bits of content
   append( head, size * 8 ); // including padding, of which there is none
   append( head, origin.pid );
   append( head, origin.tid );
   appendText( head, origin.program );
   return head;
}

void check( const std::ofstream& file, const std::filesystem::path& path ) {
   if( !file ) {
      throw std::system_error( errno, std::generic_category(), path.string() );
   }
}

} // namespace

CtfExport::CtfExport( std::filesystem::path folder ) : folder_( std::move( folder ) ) {
   if( !std::filesystem::create_directory( folder_ ) ) {
      throw std::system_error( EEXIST, std::generic_category(), folder_.string() );
   }
}

CtfExport::Stream& CtfExport::streamOf( const TimedRecord& record ) {
   const auto [found, isNew] = streams_.try_emplace( record.origin );
   Stream& stream = found->second;
   if( isNew ) {
      stream.path = folder_ / fmt::format( "stream-{}", streams_.size() - 1 );
      stream.file.open( stream.path, std::ios::binary );
      stream.file << packetHead( 0, 0, 0, *record.origin );
      stream.begin = record.time;
   }
   stream.end = record.time;
   return stream;
}

// Event classes are numbered in the order of their first events.
std::uint32_t CtfExport::eventOf( const std::shared_ptr< const Description >& description ) {
   const auto [found, isNew] =
      events_.try_emplace( description, static_cast< std::uint32_t >( events_.size() ) );
   if( isNew ) {
      std::string fields = "string text;";
      for( std::size_t at = 0; at < description->codes.size(); ++at ) {
         fields += fmt::format( " {} arg{};", typeOf( description->codes[at] ), at + 1 );
      }
      eventDeclarations_ += fmt::format(
         "event {{ name = {}; id = {}; stream_id = 0; fields := struct {{ {} }}; }};\n",
         literal( fmt::format(
            "{}/{} {}:{} {}", description->facility, description->level, description->sourceFile,
            description->line, description->function ) ),
         found->second, fields );
   }
   return found->second;
}

void CtfExport::add( const TimedRecord& timed ) {
   const Record& record = timed.record;
   std::string event;
   append( event, eventOf( record.description ) );
   append( event, timed.time );
   appendText( event, textOf( record ) );
   // A missing argument becomes an empty string or zero; the text shows that it is missing.
   for( std::size_t at = 0; at < record.description->codes.size(); ++at ) {
      const std::string_view code = record.description->codes[at];
      const Argument argument = at < record.arguments.size() ? record.arguments[at]
                                : code == "p"                ? Argument( std::string() )
                                                             : Argument( std::uint64_t{} );
      std::visit(
         [&]< typename Value >( const Value& value ) {
            if constexpr( std::is_same_v< Value, std::string > ) {
               appendText( event, value );
            } else {
               appendNumber( event, static_cast< std::uint64_t >( value ), code );
            }
         },
         argument );
   }
   Stream& stream = streamOf( timed );
   stream.file << event;
   check( stream.file, stream.path );
}

void CtfExport::finish() {
   for( auto& [origin, stream] : streams_ ) {
      const auto size = static_cast< std::uint64_t >( stream.file.tellp() );
      stream.file.seekp( 0 );
      stream.file << packetHead( stream.begin, stream.end, size, *origin );
      stream.file.close();
      check( stream.file, stream.path );
   }
   const std::string_view byteOrder = std::endian::native == std::endian::little ? "le" : "be";
   std::ofstream metadata( folder_ / "metadata" );
   metadata << fmt::format(
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
      byteOrder, eventDeclarations_ );
   metadata.close();
   check( metadata, folder_ / "metadata" );
}

} // namespace Fennet
