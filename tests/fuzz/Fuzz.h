// What the fuzz targets share: their entry, taking an input apart, and ending where it fails.
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

// Ends the process, for the fuzzer to keep the input, unless the invariant holds.
inline void require( bool holds, const char* invariant ) {
   if( !holds ) {
      std::fprintf( stderr, "violated: %s\n", invariant );
      std::abort();
   }
}

// Ends the process unless both are the same text.
inline void requireSame( std::string_view got, std::string_view expected ) {
   if( got != expected ) {
      std::fprintf(
         stderr, "got:      %.*s\nexpected: %.*s\n", static_cast< int >( got.size() ), got.data(),
         static_cast< int >( expected.size() ), expected.data() );
      std::abort();
   }
}

// Takes an input apart from its front; what is missing at its end is zero or empty.
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

// The number that digits alone write, up to `most`.
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

// The entry that each target defines: called with one input after another.
void fuzz( Input input );

} // namespace SodrelTest
