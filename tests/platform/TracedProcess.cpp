// A process whose traces the environment alone turns on.
#include <platform/trace/Trace.h>

namespace {

TRACE_FACILITY( "TracedProcess" );

} // namespace

int main() {
   TRACE( 0, "zero" );
   TRACE( 5, "five" );
   TRACE( 8, "eight" );
   TRACE( 31, "thirty-one" );
}
