// Forking, the tie to the parent's life, and reaping.
#include <support/ChildProcess.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace SodrelTest {

ChildProcess::ChildProcess( const std::function< int() >& body ) {
   const pid_t parent = getpid();
   // Otherwise both processes would write what is buffered now.
   std::fflush( nullptr );
   process_ = fork();
   if( process_ < 0 ) {
      throw std::system_error( errno, std::generic_category(), "fork" );
   }
   if( process_ == 0 ) {
      // No exception may leave this scope, because the parent's frames are above it.
      _exit( [&]() noexcept {
         prctl( PR_SET_PDEATHSIG, SIGKILL );
         // The parent may have died before prctl.
         const int result = getppid() == parent ? body() : 1;
         std::fflush( nullptr );
         return result;
      }() );
   }
}

ChildProcess::~ChildProcess() {
   if( !reaped_ ) {
      ::kill( process_, SIGKILL );
      wait();
   }
}

int ChildProcess::wait() {
   while( !reaped_ ) {
      int ended = 0;
      if( waitpid( process_, &ended, 0 ) == process_ ) {
         reaped_ = true;
         status_ = WIFSIGNALED( ended ) ? 128 + WTERMSIG( ended ) : WEXITSTATUS( ended );
      } else if( errno != EINTR ) {
         throw std::system_error( errno, std::generic_category(), "waitpid" );
      }
   }
   return status_;
}

} // namespace SodrelTest
