// A string becomes the base of exceptions only where that is said.
#include <platform/value/Exception.h>

void test() {
   const Tessel::Exception exception( Tessel::String( "text" ) );
#ifdef MUST_NOT_COMPILE
   const Tessel::Exception converted = Tessel::String( "text" );
#endif
}
