// Each argument of a trace has a placeholder.
#include <platform/trace/Trace.h>

TRACE_FACILITY( "Lamp" );

void test() {
   TRACE( 8, "Dim {}", "kitchen" );
#ifdef MUST_NOT_COMPILE
   TRACE( 8, "Dim {}", "kitchen", 30 );
#endif
}
