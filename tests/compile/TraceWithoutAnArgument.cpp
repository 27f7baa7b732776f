// Each placeholder of a trace has an argument.
#include <platform/trace/Trace.h>

TRACE_FACILITY( "Lamp" );

void test() {
   TRACE( 8, "Dim {} to {}", "kitchen", 30 );
#ifdef MUST_NOT_COMPILE
   TRACE( 8, "Dim {} to {}", "kitchen" );
#endif
}
