// What a trace's format may hold, for the compiler as for whoever reads a trace file.
#pragma once

#include <string_view>

namespace Tessel {

// The number of {} in a format; -1 when it holds any other braces but {{ and }}.
constexpr int placeholders( std::string_view format ) {
   int count = 0;
   for( std::size_t at = 0; at < format.size(); ++at ) {
      if( format[at] == '{' || format[at] == '}' ) {
         const std::string_view pair = format.substr( at++, 2 );
         if( pair != "{}" && pair != "{{" && pair != "}}" ) {
            return -1;
         }
         count += pair == "{}";
      }
   }
   return count;
}

} // namespace Tessel
