// The check of a trace's format, for the compiler and for readers of trace files.
#pragma once

#include <string_view>

namespace Tessel {

// The number of {} in a format; -1 if it has any braces other than {}, {{ and }}.
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
