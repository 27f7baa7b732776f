// A trace has one of 32 levels.
#include <platform/trace/Trace.h>

TRACE_FACILITY( "Lamp" );

void test() {
   TRACE( 31, "Dim" );
#ifdef MUST_NOT_COMPILE
   TRACE( 32, "Dim" );
#endif
}
