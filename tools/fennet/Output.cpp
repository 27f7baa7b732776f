// Texts, times, lines and JSON of records.
#include "Output.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <type_traits>
#include <variant>

#include <fmt/args.h>
#include <fmt/format.h>

namespace Fennet {

namespace {

constexpr std::int64_t second = 1'000'000'000;

bool isControl( unsigned char c ) {
   return c < 0x20 || c == 0x7f;
}

bool isDigit( char c ) {
   return c >= '0' && c <= '9';
}

std::string escapedControls( std::string_view text ) {
   std::string escaped;
   for( const char c : text ) {
      const auto byte = static_cast< unsigned char >( c );
      if( isControl( byte ) ) {
         fmt::format_to( std::back_inserter( escaped ), "\\x{:02x}", byte );
      } else {
         escaped += c;
      }
   }
   return escaped;
}

// The length of the UTF-8 character at the beginning of `text`; 0 when it is none.
std::size_t utf8Length( std::string_view text ) {
   const auto byte = [&]( std::size_t at ) { return static_cast< unsigned char >( text[at] ); };
   const unsigned char lead = byte( 0 );
   const std::size_t length = lead < 0x80   ? 1
                              : lead < 0xc2 ? 0
                              : lead < 0xe0 ? 2
                              : lead < 0xf0 ? 3
                              : lead < 0xf5 ? 4
                                            : 0;
   if( length > text.size() ) {
      return 0;
   }
   for( std::size_t at = 1; at < length; ++at ) {
      if( ( byte( at ) & 0xc0 ) != 0x80 ) {
         return 0;
      }
   }
   // Overlong forms, surrogates and what lies beyond the last character.
   if( length > 2 ) {
      const unsigned char next = byte( 1 );
      if( ( lead == 0xe0 && next < 0xa0 ) || ( lead == 0xed && next >= 0xa0 ) ||
          ( lead == 0xf0 && next < 0x90 ) || ( lead == 0xf4 && next >= 0x90 ) ) {
         return 0;
      }
   }
   return length;
}

// A JSON string; bytes that are no UTF-8 become the replacement character.
std::string jsonString( std::string_view text ) {
   std::string json = "\"";
   while( !text.empty() ) {
      const std::size_t length = utf8Length( text );
      const char c = text.front();
      if( length == 0 ) {
         json += "\\ufffd";
      } else if( isControl( static_cast< unsigned char >( c ) ) ) {
         fmt::format_to( std::back_inserter( json ), "\\u{:04x}", c );
      } else {
         json += c == '"' || c == '\\' ? "\\" : "";
         json += text.substr( 0, length );
      }
      text.remove_prefix( std::max< std::size_t >( length, 1 ) );
   }
   return json + '"';
}

std::string jsonValue( const Argument& argument ) {
   return std::visit(
      []< typename T >( const T& value ) {
         if constexpr( std::is_same_v< T, std::string > ) {
            return jsonString( std::string_view( value ) );
         } else {
            return fmt::format( "{}", value );
         }
      },
      argument );
}

} // namespace

std::string textOf( const Record& record ) {
   // The reader has checked that the format has as many {} as the description has codes.
   fmt::dynamic_format_arg_store< fmt::format_context > args;
   for( const Argument& argument : record.arguments ) {
      std::visit( [&]( const auto& value ) { args.push_back( value ); }, argument );
   }
   for( auto missing = record.arguments.size(); missing < record.description->codes.size();
        ++missing ) {
      args.push_back( "..." );
   }
   return escapedControls( fmt::vformat( record.description->format, args ) );
}

std::string formatTime( std::int64_t time ) {
   using namespace std::chrono;
   const sys_seconds whole{ seconds( time / second ) };
   const sys_days day = floor< days >( whole );
   const year_month_day date( day );
   const hh_mm_ss clock( whole - day );
   return fmt::format(
      "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:09}Z", int( date.year() ), unsigned( date.month() ),
      unsigned( date.day() ), clock.hours().count(), clock.minutes().count(),
      clock.seconds().count(), time % second );
}

std::optional< std::int64_t > parseTime( std::string_view text ) {
   // Everything but the fraction has its place; the separators stand where the zeros do not.
   constexpr std::string_view shape = "0000-00-00T00:00:00";
   int fields[6] = {};
   std::size_t field = 0;
   if( text.size() < shape.size() ) {
      return std::nullopt;
   }
   for( std::size_t at = 0; at < shape.size(); ++at ) {
      if( shape[at] != '0' ) {
         ++field;
      }
      if( shape[at] != '0' ? text[at] != shape[at] : !isDigit( text[at] ) ) {
         return std::nullopt;
      }
      if( shape[at] == '0' ) {
         fields[field] = fields[field] * 10 + ( text[at] - '0' );
      }
   }
   text.remove_prefix( shape.size() );
   std::int64_t fraction = 0;
   if( text.starts_with( '.' ) ) {
      text.remove_prefix( 1 );
      for( std::int64_t unit = second / 10; !text.empty() && isDigit( text.front() ); unit /= 10 ) {
         fraction += ( text.front() - '0' ) * unit;
         text.remove_prefix( 1 );
      }
   }
   using namespace std::chrono;
   const year_month_day date{ year( fields[0] ), month( unsigned( fields[1] ) ),
                              day( unsigned( fields[2] ) ) };
   const bool clockIsRight = fields[3] < 24 && fields[4] < 60 && fields[5] < 60;
   if( ( text != "" && text != "Z" ) || !date.ok() || !clockIsRight || fields[0] < 1970 ||
       fields[0] > 2261 ) {
      return std::nullopt;
   }
   const sys_seconds whole =
      sys_days( date ) + hours( fields[3] ) + minutes( fields[4] ) + seconds( fields[5] );
   return whole.time_since_epoch().count() * second + fraction;
}

std::string lineOf( const TimedRecord& timed, bool colours ) {
   const Description& description = *timed.record.description;
   const auto coloured = [&]( std::string_view colour, const std::string& text ) {
      return colours ? fmt::format( "\x1b[{}m{}\x1b[0m", colour, text ) : text;
   };
   const std::string facility = escapedControls( description.facility );
   const std::string place = escapedControls( description.sourceFile );
   const std::string function = escapedControls( description.function );
   const std::string tag = escapedControls( description.tag );
   const std::string text = textOf( timed.record );
   return fmt::format(
      "{} {} {} {} {}{}{}{}", coloured( "2", formatTime( timed.time ) ), timed.origin->tid,
      coloured( "36", fmt::format( "{}/{}", facility, description.level ) ),
      coloured( "2", fmt::format( "{}:{}", place, description.line ) ), coloured( "1", function ),
      tag.empty() ? "" : " [" + tag + "]", text.empty() ? "" : ": ", text );
}

std::string jsonOf( const TimedRecord& timed ) {
   const Description& description = *timed.record.description;
   std::string arguments;
   for( const Argument& argument : timed.record.arguments ) {
      arguments += ( arguments.empty() ? "" : "," ) + jsonValue( argument );
   }
   return fmt::format(
      R"({{"time":"{}","nanoseconds":{},"program":{},"pid":{},"tid":{},"facility":{},"level":{},)"
      R"("file":{},"line":{},"operation":{},"tag":{},"format":{},"arguments":[{}],"cut":{},)"
      R"("text":{}}})",
      formatTime( timed.time ), timed.time, jsonString( timed.origin->program ), timed.origin->pid,
      timed.origin->tid, jsonString( description.facility ), description.level,
      jsonString( description.sourceFile ), description.line, jsonString( description.function ),
      jsonString( description.tag ), jsonString( description.format ), arguments, timed.record.cut,
      jsonString( textOf( timed.record ) ) );
}

} // namespace Fennet
