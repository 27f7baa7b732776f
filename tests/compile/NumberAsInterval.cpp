// A number becomes a length of time only where that is said.
#include <platform/value/Interval.h>

void test() {
   const Tessel::Interval interval( 1 );
#ifdef MUST_NOT_COMPILE
   const Tessel::Interval converted = 1;
#endif
}
