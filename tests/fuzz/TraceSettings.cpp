// Fuzzes the readers of TESSEL_TRACE and FENNET_TRACE: a byte that chooses, then the value.
#include "Fuzz.h"

// A process reads its environment once, so the code that parses the values is included here.
#include <platform/trace/Facility.cpp>     // NOLINT(bugprone-suspicious-include)
#include <platform/trace/FennetHandle.cpp> // NOLINT(bugprone-suspicious-include)

#include <vector>

namespace SodrelTest {

namespace {

std::vector< std::string > split( const std::string& text, char separator ) {
   std::vector< std::string > parts( 1 );
   for( const char c : text ) {
      c == separator ? parts.emplace_back() : parts.back() += c;
   }
   return parts;
}

std::optional< std::map< std::string, std::uint32_t > > expected( const std::string& text ) {
   std::map< std::string, std::uint32_t > all;
   std::vector< std::string > facilities = split( text, ';' );
   if( facilities.back().empty() ) {
      facilities.pop_back(); // the last facility may be followed by a separator
   }
   for( const std::string& facility : facilities ) {
      const std::size_t equals = facility.find( '=' );
      if( equals == std::string::npos || equals == 0 ) {
         return std::nullopt;
      }
      std::uint32_t& levels = all[facility.substr( 0, equals )];
      const std::string list = facility.substr( equals + 1 );
      if( list == "*" ) {
         levels = 0xffff'ffff;
         continue;
      }
      for( const std::string& word : split( list, ',' ) ) {
         const auto level = numberOf( word, 31 );
         if( !level ) {
            return std::nullopt;
         }
         levels |= 1U << *level;
      }
   }
   return all;
}

void readFacilities( const std::string& text ) {
   const auto got = Orl::parseFacilities( text );
   const auto wanted = expected( text );
   require( got.has_value() == wanted.has_value(), "TESSEL_TRACE is well-formed" );
   require(
      !got || std::equal( got->begin(), got->end(), wanted->begin(), wanted->end() ),
      "TESSEL_TRACE enables what it names" );
}

// Returns the size at the end of a value of FENNET_TRACE in bytes, or 0 if it is invalid.
std::uint64_t expectedSize( std::string digits ) {
   std::uint64_t unit = 1;
   if( digits.ends_with( 'K' ) || digits.ends_with( 'M' ) ) {
      unit = digits.back() == 'K' ? 1024 : 1024 * 1024;
      digits.pop_back();
   }
   constexpr std::uint64_t least = 64U << 10;
   constexpr std::uint64_t most = 1U << 30;
   const std::uint64_t size = unit * numberOf( digits, most / unit ).value_or( 0 );
   return size < least ? 0 : size;
}

void readSettings( const std::string& text ) {
   const auto got = Fennet::parseSettings( text );
   const std::size_t comma = text.rfind( ',' );
   const bool whole = comma != std::string::npos && text.front() == '/';
   const std::uint64_t size = whole ? expectedSize( text.substr( comma + 1 ) ) : 0;
   require( got.has_value() == ( size != 0 ), "FENNET_TRACE is well-formed" );
   if( got ) {
      require( got->ringSize == size, "FENNET_TRACE sets the ring's size" );
      requireSame( got->folder, text.substr( 0, comma ) );
   }
}

} // namespace

void fuzz( Input input ) {
   const bool facilities = input.byte() % 2 == 0;
   const std::string text( input.rest() );
   facilities ? readFacilities( text ) : readSettings( text );
}

} // namespace SodrelTest
