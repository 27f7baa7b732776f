// Fuzzes the reader of trace files: the beginnings of a header and of the ring, then descriptions.
#include "Fuzz.h"

#include <fennet/Output.h>
#include <fennet/TraceReader.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace SodrelTest {

namespace {

// The file whose header and ring start with this many bytes of the input each, and are zero beyond;
// the descriptions are the rest of the input.
std::string fileIn( Input& input ) {
   constexpr std::size_t beginning = 512;
   constexpr std::size_t headerSize = 4096;
   std::string bytes( input.text( beginning ) );
   bytes.resize( headerSize );
   bytes += input.text( beginning );
   bytes.resize( headerSize + Fennet::minRingSize );
   return bytes.append( input.rest() );
}

// What is printed of the records, and of the damage that ends them.
struct Reading {
   std::vector< std::string > lines;
   std::string damage;
};

bool hasControl( const std::string& text ) {
   return std::any_of( text.begin(), text.end(), []( char c ) {
      return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f;
   } );
}

Reading readingOf( Fennet::TraceReader& reader ) {
   Reading reading;
   try {
      reader.read( [&]( Fennet::Record record ) {
         require( reader.begun(), "a file with records has a complete header" );
         const std::size_t wanted = record.description->codes.size();
         require(
            record.cut ? record.arguments.size() <= wanted : record.arguments.size() == wanted,
            "a record has its arguments, or is cut" );
         const auto origin =
            std::make_shared< const Fennet::TraceReader::Origin >( reader.origin() );
         const Fennet::TimedRecord timed{ 0, origin, std::move( record ) };
         const std::string line = lineOf( timed, false );
         const std::string json = jsonOf( timed );
         require( !hasControl( line ) && !hasControl( json ), "nothing printed steers a terminal" );
         require( json.starts_with( '{' ) && json.ends_with( '}' ), "the JSON is an object" );
         reading.lines.push_back( line );
         reading.lines.push_back( json );
      } );
   } catch( const Fennet::Damage& damage ) {
      reading.damage = damage.what();
      require( reading.damage.starts_with( "at byte " ), "the damage names its place" );
   }
   return reading;
}

} // namespace

void fuzz( Input input ) {
   const std::string file = fileIn( input );
   const Fennet::ReadAt readAt = [&]( std::uint64_t offset, char* to, std::size_t wanted ) {
      return offset < file.size() ? file.copy( to, wanted, static_cast< std::size_t >( offset ) )
                                  : 0;
   };
   Fennet::TraceReader reader( readAt );
   const Reading first = readingOf( reader );
   require( first.lines.size() / 2 <= Fennet::minRingSize / 16, "records lie side by side" );
   if( first.damage.empty() ) {
      const Reading again = readingOf( reader );
      require( again.lines.empty() && again.damage.empty(), "each record is given once" );
   }
   Fennet::TraceReader other( readAt );
   const Reading second = readingOf( other );
   require(
      second.lines == first.lines && second.damage == first.damage, "two readings are the same" );
}

} // namespace SodrelTest
