// Runs a fuzz target once on each file of a folder, without a fuzzer.
#include "Fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>

int main( int argc, char** argv ) {
   std::size_t replayed = 0;
   for( const auto& entry : std::filesystem::directory_iterator( argc > 1 ? argv[1] : "." ) ) {
      std::ifstream file( entry.path(), std::ios::binary );
      const std::string bytes{ std::istreambuf_iterator< char >( file ), {} };
      std::printf( "%s\n", entry.path().c_str() );
      std::fflush( stdout );
      SodrelTest::fuzz( { reinterpret_cast< const std::uint8_t* >( bytes.data() ), bytes.size() } );
      ++replayed;
   }
   std::printf( "%zu inputs\n", replayed );
   return replayed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
