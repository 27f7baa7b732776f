// Formatting the texts, times, lines and JSON of records.
#include "Output.h"

#include <platform/trace/Line.h>

#include <cstdio>
#include <ctime>
#include <string_view>
#include <variant>

#include <fmt/args.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Fennet {

namespace {

using Tessel::Impl::escaped;

constexpr std::int64_t second = 1'000'000'000;

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
   return escaped( fmt::vformat( record.description->format, args ) );
}

std::string formatTime( std::int64_t time ) {
   return fmt::format(
      "{:%Y-%m-%dT%H:%M:%S}.{:09}Z", fmt::gmtime( static_cast< std::time_t >( time / second ) ),
      time % second );
}

std::optional< std::int64_t > parseTime( const std::string& text ) {
   std::tm date{};
   date.tm_mday = 1;
   char fraction[10] = "";
   std::sscanf( // NOLINT(cert-err34-c): formatting the result below detects errors
      text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%9[0-9]", &date.tm_year, &date.tm_mon, &date.tm_mday,
      &date.tm_hour, &date.tm_min, &date.tm_sec, fraction );
   // The years that 64 bits of nanoseconds can represent.
   if( date.tm_year < 1970 || date.tm_year > 2261 ) {
      return std::nullopt;
   }
   date.tm_year -= 1900;
   date.tm_mon -= 1;
   std::string nanoseconds = fraction;
   nanoseconds.resize( 9, '0' );
   const std::int64_t time = timegm( &date ) * second + std::stoi( nanoseconds );
   // A valid time, without the Z, is a prefix of what is printed for it and ends with a complete
   // field.
   const std::string_view given =
      std::string_view( text ).substr( 0, text.size() - ( text.ends_with( 'Z' ) ? 1 : 0 ) );
   const bool isWhole =
      given.size() == 10 || given.size() == 16 || given.size() == 19 || given.size() > 20;
   return isWhole && formatTime( time ).starts_with( given ) ? std::optional( time ) : std::nullopt;
}

std::string lineOf( const TimedRecord& timed, bool colours ) {
   const Description& description = *timed.record.description;
   const auto coloured = [&]( std::string_view colour, const std::string& text ) {
      return colours ? fmt::format( "\x1b[{}m{}\x1b[0m", colour, text ) : text;
   };
   const std::string tag = escaped( description.tag );
   const std::string text = textOf( timed.record );
   return fmt::format(
      "{} {} {} {} {}{}{}{}", coloured( "2", formatTime( timed.time ) ), timed.origin->tid,
      coloured( "36", fmt::format( "{}/{}", escaped( description.facility ), description.level ) ),
      coloured( "2", fmt::format( "{}:{}", escaped( description.sourceFile ), description.line ) ),
      coloured( "1", escaped( description.function ) ), tag.empty() ? "" : " [" + tag + "]",
      text.empty() ? "" : ": ", text );
}

std::string jsonOf( const TimedRecord& timed ) {
   const Description& description = *timed.record.description;
   nlohmann::ordered_json arguments = nlohmann::ordered_json::array();
   for( const Argument& argument : timed.record.arguments ) {
      std::visit( [&]( const auto& value ) { arguments.push_back( value ); }, argument );
   }
   const nlohmann::ordered_json object{
      { "time", formatTime( timed.time ) }, { "nanoseconds", timed.time },
      { "program", timed.origin->program }, { "pid", timed.origin->pid },
      { "tid", timed.origin->tid },         { "facility", description.facility },
      { "level", description.level },       { "file", description.sourceFile },
      { "line", description.line },         { "operation", description.function },
      { "tag", description.tag },           { "format", description.format },
      { "arguments", arguments },           { "cut", timed.record.cut },
      { "text", textOf( timed.record ) },
   };
   // ASCII, so that no character of an argument can control a terminal.
   return object.dump( -1, ' ', true, nlohmann::ordered_json::error_handler_t::replace );
}

} // namespace Fennet
