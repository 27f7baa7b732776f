// What a trace's format may hold, for the compiler as for whoever reads a trace file.
#pragma once

#include <string_view>

namespace Tessel {

// The number of {} in a format; -1 when it holds any other braces but {{ and }}.
constexpr int placeholders( std::string_view format ) {
   int count = 0;
   std::size_t at = format.find_first_of( "{}" );
   while( at != std::string_view::npos ) {
      const std::string_view pair = format.substr( at, 2 );
      if( pair != "{}" && pair != "{{" && pair != "}}" ) {
         return -1;
      }
      count += pair == "{}";
      at = format.find_first_of( "{}", at + 2 );
   }
   return count;
}

} // namespace Tessel
