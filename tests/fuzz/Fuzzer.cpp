// Forwards the fuzzer's entry point to the target.
#include "Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t* data, std::size_t size ) {
   SodrelTest::fuzz( { data, size } );
   return 0;
}
