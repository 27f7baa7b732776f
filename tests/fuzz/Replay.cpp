// Runs a fuzz target once on each file of the folders it is given, where there is no fuzzer.
#include "Fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main( int argc, char** argv ) {
   std::size_t replayed = 0;
   for( int i = 1; i < argc; ++i ) {
      for( const auto& entry : std::filesystem::directory_iterator( argv[i] ) ) {
         std::ifstream file( entry.path(), std::ios::binary );
         const std::vector< char > bytes{ std::istreambuf_iterator< char >( file ), {} };
         std::printf( "%s\n", entry.path().c_str() );
         std::fflush( stdout );
         LLVMFuzzerTestOneInput(
            reinterpret_cast< const std::uint8_t* >( bytes.data() ), bytes.size() );
         ++replayed;
      }
   }
   std::printf( "%zu inputs\n", replayed );
   return replayed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
