// Code shared by the fuzz targets: the entry point, parsing inputs, and reporting failures.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace SodrelTest {

// Ends the process unless the invariant holds, so that the fuzzer keeps the input.
inline void require( bool holds, const char* invariant ) {
   if( !holds ) {
      std::fprintf( stderr, "violated: %s\n", invariant );
      std::abort();
   }
}

// Ends the process unless both texts are equal.
inline void requireSame( std::string_view got, std::string_view expected ) {
   if( got != expected ) {
      std::fprintf(
         stderr, "got:      %.*s\nexpected: %.*s\n", static_cast< int >( got.size() ), got.data(),
         static_cast< int >( expected.size() ), expected.data() );
      std::abort();
   }
}

// Parses an input from the front. Values missing at the end are zero or empty.
class Input {
 public:
   Input( const std::uint8_t* data, std::size_t size )
      : rest_( reinterpret_cast< const char* >( data ), size ) {}

   [[nodiscard]] bool empty() const { return rest_.empty(); }

   std::uint8_t byte() {
      const std::string_view taken = text( 1 );
      return taken.empty() ? std::uint8_t{ 0 } : static_cast< std::uint8_t >( taken.front() );
   }
   // The lower byte comes first.
   std::uint16_t word() {
      const int low = byte();
      return static_cast< std::uint16_t >( low | byte() << 8 );
   }
   std::string_view text( std::size_t size ) {
      const std::string_view taken = rest_.substr( 0, size );
      rest_.remove_prefix( taken.size() );
      return taken;
   }
   std::string_view rest() { return text( rest_.size() ); }

 private:
   std::string_view rest_;
};

// Converts a text of digits only to a number of at most `most`.
inline std::optional< std::uint64_t > numberOf( std::string_view digits, std::uint64_t most ) {
   std::uint64_t number = 0;
   for( const char digit : digits ) {
      if( digit < '0' || digit > '9' ) {
         return std::nullopt;
      }
      number = number * 10 + static_cast< std::uint64_t >( digit - '0' );
      if( number > most ) {
         return std::nullopt;
      }
   }
   return digits.empty() ? std::nullopt : std::optional( number );
}

// The entry point that each target defines, called with one input after another.
void fuzz( Input input );

} // namespace SodrelTest
