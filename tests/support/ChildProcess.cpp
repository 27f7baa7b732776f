// Forking, the tie to the parent's life, and reaping.
#include <support/ChildProcess.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Sodrel::Test {

namespace {

// Not to be left by an exception: the parent's frames lie above it.
int runTiedTo( pid_t parent, const std::function< int() >& body ) noexcept {
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   // The parent may have died before the tie was made.
   if( getppid() != parent ) {
      return 1;
   }
   const int result = body();
   std::fflush( nullptr );
   return result;
}

} // namespace

ChildProcess::ChildProcess( const std::function< int() >& body ) {
   const pid_t parent = getpid();
   // What is buffered now would be written by both processes.
   std::fflush( nullptr );
   process = fork();
   if( process < 0 ) {
      throw std::system_error( errno, std::generic_category(), "fork" );
   }
   if( process == 0 ) {
      _exit( runTiedTo( parent, body ) );
   }
}

ChildProcess::~ChildProcess() {
   kill();
}

void ChildProcess::kill() {
   if( !reaped ) {
      ::kill( process, SIGKILL );
      wait();
   }
}

int ChildProcess::wait() {
   while( !reaped ) {
      int ended = 0;
      if( waitpid( process, &ended, 0 ) == process ) {
         reaped = true;
         status = WIFSIGNALED( ended ) ? 128 + WTERMSIG( ended ) : WEXITSTATUS( ended );
      } else if( errno != EINTR ) {
         throw std::system_error( errno, std::generic_category(), "waitpid" );
      }
   }
   return status;
}

} // namespace Sodrel::Test
