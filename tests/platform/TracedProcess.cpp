// A process whose traces the environment alone turns on, of two threads.
#include <platform/trace/Trace.h>

#include <thread>

namespace {

TRACE_FACILITY( "TracedProcess" );

} // namespace

int main() {
   TRACE( 0, "zero" );
   TRACE( 5, "five" );
   TRACE( 8, "eight" );
   std::thread( [] { TRACE( 31, "thirty-one" ); } ).join();
}
