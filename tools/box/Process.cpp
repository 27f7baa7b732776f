// Forking, reaping, polling and reporting.
#include "Process.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace Box {

int report( const std::exception& error ) {
   const auto* const failure = dynamic_cast< const Failure* >( &error );
   std::fprintf( stderr, "systemd-box: %s%s\n", failure ? "" : "cannot run here: ", error.what() );
   return failure ? failure->status : cannotRunHere;
}

Descriptor opened( const std::string& path, int flags ) {
   return Descriptor( checked( open( path.c_str(), flags | O_CLOEXEC ), path ) );
}

std::string contentsOf( const std::string& path ) {
   std::ostringstream contents;
   contents << std::ifstream( path ).rdbuf();
   return contents.str();
}

Descriptor pidfdOf( pid_t process ) {
   const long descriptor = syscall( SYS_pidfd_open, process, 0 );
   return Descriptor( checked( static_cast< int >( descriptor ), "pidfd_open" ) );
}

void standardStreamsAre( const Descriptor& input, const Descriptor& output ) {
   dup2( input.number(), STDIN_FILENO );
   dup2( output.number(), STDOUT_FILENO );
   dup2( output.number(), STDERR_FILENO );
}

Child::Child( const std::function< void() >& body ) : id_( checked( fork(), "fork" ) ) {
   if( id_ == 0 ) {
      int status = 0;
      try {
         body();
      } catch( const std::exception& error ) {
         status = report( error );
      }
      _exit( status );
   }
   descriptor_ = pidfdOf( id_ ); // not reaped yet, so the ID cannot have been reused
}

Child::~Child() {
   if( !status_ ) {
      kill( id_, SIGKILL );
      wait();
   }
}

int Child::wait() {
   while( !status_ ) {
      int ended = 0;
      if( waitpid( id_, &ended, 0 ) == id_ ) {
         status_ = WIFSIGNALED( ended ) ? 128 + WTERMSIG( ended ) : WEXITSTATUS( ended );
      }
   }
   return *status_;
}

Descriptor blockedSignals() {
   sigset_t ending;
   sigemptyset( &ending );
   for( const int signal : { SIGINT, SIGTERM, SIGQUIT, SIGHUP } ) {
      struct sigaction action {};
      sigaction( signal, nullptr, &action );
      // SIGHUP stays ignored under nohup. Shells also ignore signals for background commands, and
      // ignored signals never arrive.
      if( signal == SIGHUP && action.sa_handler == SIG_IGN ) {
         continue;
      }
      sigaddset( &ending, signal );
      action.sa_handler = SIG_DFL;
      sigaction( signal, &action, nullptr );
   }
   sigprocmask( SIG_SETMASK, &ending, nullptr );
   return Descriptor( checked( signalfd( -1, &ending, SFD_CLOEXEC ), "signalfd" ) );
}

int await(
   const Descriptor& signals, std::initializer_list< int > descriptors, const Deadline& deadline ) {
   std::vector< pollfd > polled{ { signals.number(), POLLIN, 0 } };
   for( const int descriptor : descriptors ) {
      polled.push_back( { descriptor, POLLIN, 0 } );
   }
   int ready = 0;
   do {
      int limit = -1;
      if( deadline ) {
         using std::chrono::milliseconds;
         const auto left =
            std::chrono::ceil< milliseconds >( *deadline - std::chrono::steady_clock::now() );
         limit = static_cast< int >( std::max( left, milliseconds( 0 ) ).count() );
      }
      ready = poll( polled.data(), polled.size(), limit );
   } while( ready < 0 );
   if( polled.front().revents != 0 ) {
      signalfd_siginfo arrived{};
      checked( read( signals.number(), &arrived, sizeof arrived ), "signalfd" );
      throw Interrupted{ static_cast< int >( arrived.ssi_signo ) };
   }
   const auto first =
      std::find_if( polled.begin(), polled.end(), []( auto& entry ) { return entry.revents; } );
   return ready == 0 ? -1 : static_cast< int >( first - polled.begin() ) - 1;
}

} // namespace Box
