// A trace takes what a record can hold.
#include <platform/trace/Trace.h>

TRACE_FACILITY( "Lamp" );

void test() {
   TRACE( 8, "Dim to {}", 30 );
#ifdef MUST_NOT_COMPILE
   TRACE( 8, "Dim to {}", 30.5 );
#endif
}
