// A process with two threads whose traces only the environment enables. With the argument "forks",
// it forks while the other thread begins its first trace; with "numbers", it traces numbers
// instead.
#include <platform/trace/Trace.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <thread>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TRACE_FACILITY( "TracedProcess" );

int forkDuringTheFirstTrace() {
   std::atomic< bool > begins = false;
   std::thread first( [&] {
      begins = true;
      TRACE( 0, "zero" );
   } );
   while( !begins ) {
   }
   int failed = 0;
   for( int fork = 0; fork < 20; ++fork ) {
      const pid_t child = ::fork();
      if( child == 0 ) {
         alarm( 20 );
         TRACE( 5, "five" );
         // On any other exit, a sanitizer would report the other thread as missing.
         syscall( SYS_exit_group, 0 );
      }
      int status = -1;
      waitpid( child, &status, 0 );
      failed += status != 0 ? 1 : 0;
   }
   first.join();
   return failed;
}

// Traces numbers of types whose sizes differ between architectures, and the largest of the others.
void traceNumbers() {
   TRACE(
      1, "{} {} {} {} {} {}", std::size_t{ 4096 }, -5L, INT64_MIN, UINT64_MAX, true,
      std::string_view( "text" ) );
}

} // namespace

int main( int argc, char** argv ) {
   const std::string_view mode = argc > 1 ? argv[1] : "";
   if( mode == "forks" ) {
      return forkDuringTheFirstTrace();
   }
   if( mode == "numbers" ) {
      traceNumbers();
      return 0;
   }
   TRACE( 0, "zero" );
   TRACE( 5, "five" );
   TRACE( 6, "six" );
   TRACE( 8, "eight" );
   std::thread( [] { TRACE( 31, "thirty-one" ); } ).join();
}
