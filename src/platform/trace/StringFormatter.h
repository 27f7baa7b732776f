// Makes {fmt} print the system's string as its text.
#pragma once

#include <platform/value/String.h>

#include <fmt/format.h>

template<>
struct fmt::formatter< Tessel::String > : fmt::formatter< fmt::string_view > {
   template< typename Context >
   auto format( const Tessel::String& string, Context& context ) const {
      return fmt::formatter< fmt::string_view >::format(
         fmt::string_view( string.data(), string.size() ), context );
   }
};
