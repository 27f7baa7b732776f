// A string becomes an exception only where that is said.
#include <Sodrel/Exceptions.h>

void test() {
   const Sodrel::NoSdbusException exception( Tessel::String( "text" ) );
#ifdef MUST_NOT_COMPILE
   const Sodrel::NoSdbusException converted = Tessel::String( "text" );
#endif
}
