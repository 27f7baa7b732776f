// Trace points.
#include <platform/trace/Trace.h>

TRACE_FACILITY( "Lamp" );

void test() {
   TRACE( 31, "Dim {} to {}", "kitchen", 30 );

#if defined( WITHOUT_AN_ARGUMENT )
   TRACE( 8, "Dim {} to {}", "kitchen" );
#elif defined( WITHOUT_A_PLACEHOLDER )
   TRACE( 8, "Dim {}", "kitchen", 30 );
#elif defined( OF_A_DOUBLE )
   TRACE( 8, "Dim to {}", 30.5 );
#elif defined( LEVEL_OUT_OF_RANGE )
   TRACE( 32, "Dim" );
#endif
}
