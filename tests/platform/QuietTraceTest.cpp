// What a ring-buffer record does not do: no system call, not even the clock's.
#include <platform/trace/Trace.h>

#include "TraceFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TRACE_FACILITY( "QuietTraceTest" );

void traceNumber( int number ) {
   TRACE( 8, "number {} of {}", number, "many" );
}

// From now on the process may only end; another system call ends it with SIGSYS. False where the
// kernel does not offer this.
bool onlyTheEndIsAllowed() {
   sock_filter filter[] = {
      BPF_STMT( BPF_LD | BPF_W | BPF_ABS, offsetof( seccomp_data, nr ) ),
      BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1 ),
      BPF_STMT( BPF_RET | BPF_K, SECCOMP_RET_ALLOW ),
      BPF_STMT( BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS ),
   };
   const sock_fprog program{ sizeof filter / sizeof filter[0], filter };
   return prctl( PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0 ) == 0 &&
          prctl( PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program ) == 0;
}

// How a process ends that runs the body where only its end is allowed.
template< typename Body >
int statusOf( Body body ) {
   const pid_t child = fork();
   if( child == 0 ) {
      traceNumber( -1 );
      if( !onlyTheEndIsAllowed() ) {
         _exit( 1 );
      }
      body();
      syscall( SYS_exit_group, 0 ); // _exit would do more under the address sanitizer
   }
   int status = -1;
   waitpid( child, &status, 0 );
   return status;
}

class AQuietProcess : public testing::Test {
 protected:
   Fennet::TraceFolder folder;
   Fennet::DefaultHandle handle{ folder };
};

TEST_F( AQuietProcess, endsByASystemCall ) {
   const int status = statusOf( [] { syscall( SYS_getppid ); } );
   ASSERT_TRUE( WIFSIGNALED( status ) );
   EXPECT_EQ( WTERMSIG( status ), SIGSYS );
}

TEST_F( AQuietProcess, tracesSeveralTimesRoundTheRing ) {
   constexpr int traces = 10'000;
   const int status = statusOf( [] {
      for( int number = 0; number < traces; ++number ) {
         traceNumber( number );
      }
   } );
   ASSERT_TRUE( WIFEXITED( status ) ) << "by signal " << WTERMSIG( status );
   ASSERT_EQ( WEXITSTATUS( status ), 0 );
   EXPECT_EQ( folder.texts().back(), "number " + std::to_string( traces - 1 ) + " of many" );
}

} // namespace
