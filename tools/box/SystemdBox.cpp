// systemd-box: boots a fresh systemd and system bus in their own namespaces and runs one command
// inside. Its processes: this program, which is the parent of the others; the sweeper; systemd; the
// command.
#include "Cgroup.h"
#include "Inside.h"
#include "Options.h"
#include "Process.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Box {

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr std::chrono::seconds bootLimit( 30 );

void lookForWhatIsNeeded( const Options& options ) {
   if( geteuid() != 0 ) {
      throw std::runtime_error( "not running as root" );
   }
   for( const char* const program :
        { "lib/systemd/systemd", "usr/bin/dbus-daemon", "usr/bin/dbus-send" } ) {
      const std::string path = options.root / program;
      if( access( path.c_str(), X_OK ) < 0 ) {
         throw std::runtime_error( "'" + path + "' is missing (packages systemd, dbus)" );
      }
   }
}

// The sweeper: removes the cgroup when the program has died. Everything else dies with the program.
void sweep( pid_t program, const Descriptor& itsEnd ) {
   sigset_t all;
   sigfillset( &all );
   sigprocmask( SIG_BLOCK, &all, nullptr );
   const Descriptor null = opened( "/dev/null", O_RDWR );
   standardStreamsAre( null, null );
   checked( chdir( "/" ), "chdir" );
   const Cgroup cgroup( program );
   pollfd end{ itsEnd.number(), POLLIN, 0 };
   while( poll( &end, 1, -1 ) < 0 ) {
   }
   cgroup.remove();
}

std::string messageFrom( const Descriptor& descriptor ) {
   char text[512] = {};
   (void)!read( descriptor.number(), text, sizeof text - 1 );
   return text;
}

// Waits until process 1 has set up its mounts, then lets it become systemd.
void letProceed( const Descriptor& signals, Inside& inside ) {
   inside.toProgram.reset(); // so that the socket is closed when process 1 has died
   await( signals, { inside.toInit.number() } );
   const std::string message = messageFrom( inside.toInit );
   if( message != isSetUp ) {
      throw std::runtime_error(
         "cannot set up the box: " + ( message.empty() ? "killed" : message ) );
   }
   send( inside.toInit.number(), "", 1, MSG_NOSIGNAL );
}

// Waits until the bus is up and systemd has joined it.
void awaitReady( const Descriptor& signals, const fs::path& run, const Child& init ) {
   // Also open for writing, so there is never an end of file.
   const Descriptor ready = opened( run / readyFifo, O_RDWR );
   const int first =
      await( signals, { ready.number(), init.descriptor() }, steady_clock::now() + bootLimit );
   std::string outcome = first < 0 ? "time limit\n" : "systemd has ended\n";
   if( first == 0 ) {
      outcome = messageFrom( ready );
   }
   if( outcome != readyLine ) {
      outcome.pop_back();
      throw Failure(
         bootFailed,
         "the box did not come up (" + outcome + "); its log:\n" + contentsOf( run / logFile ) );
   }
}

// Turns a child of the program into the command.
void becomeCommand( const Options& options, const Cgroup& cgroup, const Child& init ) {
   cgroup.join( "init.scope" );
   const Descriptor root =
      opened( "/proc/" + std::to_string( init.id() ) + "/root", O_PATH | O_DIRECTORY );
   checked(
      setns( init.descriptor(), CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWCGROUP ),
      "cannot enter the box" );
   // Entering a mount namespace leads out of a chroot that the box was started in.
   checked( fchdir( root.number() ), "cannot enter the box" );
   checked( chroot( "." ), "cannot enter the box" );
   if( chdir( options.workingDirectory.c_str() ) < 0 ) {
      throw Failure( bootFailed, options.workingDirectory + " does not exist in the box" );
   }
   unsetenv( "DBUS_SYSTEM_BUS_ADDRESS" );
   unsetenv( "SYSTEMD_BOX_OPTIONS" );
   addToEnvironment( options.environment );
   sigset_t none;
   sigemptyset( &none );
   sigprocmask( SIG_SETMASK, &none, nullptr );

   std::vector< std::string > words = options.command;
   std::vector< char* > arguments( words.size() + 1 ); // the last one is null
   std::transform(
      words.begin(), words.end(), arguments.begin(), []( auto& word ) { return word.data(); } );
   execvp( arguments.front(), arguments.data() );
   const std::error_code error( errno, std::generic_category() );
   throw Failure(
      error == std::errc::no_such_file_or_directory ? 127 : 126,
      "cannot run '" + words.front() + "': " + error.message() );
}

// Returns the exit status of the box.
int awaitEnd( const Descriptor& signals, const Options& options, Child& command, Child& init ) {
   Deadline deadline;
   if( options.timeLimit ) {
      deadline = steady_clock::now() + *options.timeLimit;
   }
   if( await( signals, { command.descriptor() }, deadline ) < 0 ) {
      return timeLimitReached;
   }
   // Under "systemctl exit", systemd kills the command and then executes another program.
   const std::string program = contentsOf( "/proc/" + std::to_string( init.id() ) + "/comm" );
   if( command.wait() <= 128 || program == "systemd\n" ) {
      return command.wait();
   }
   return await( signals, { init.descriptor() }, deadline ) < 0 ? timeLimitReached : init.wait();
}

// However this ends, the parts are torn down in the reverse order of their creation.
int run( const Options& options, const Descriptor& signals ) {
   const pid_t self = getpid();
   const Descriptor end = pidfdOf( self );
   const Child sweeper( [&] { sweep( self, end ); } );
   // From here on, signals to the program's process group do not reach the sweeper.
   setpgid( sweeper.id(), sweeper.id() );
   // From here on, all children belong to the box's process namespace.
   checked( unshare( CLONE_NEWPID ), "cannot create namespaces" );
   Cgroup cgroup( self );
   cgroup.create();
   Inside inside = makeInside( options, cgroup );
   Child init( [&] { becomeInit( inside ); } );
   letProceed( signals, inside );
   awaitReady( signals, inside.run.path(), init );
   Child command( [&] { becomeCommand( options, cgroup, init ); } );
   return awaitEnd( signals, options, command, init );
}

int mainOf( int argc, char** argv ) {
   const Descriptor signals = blockedSignals();
   const Options options = optionsOf( argc, argv );
   if( options.help ) {
      std::fputs( usage, stdout );
      return EXIT_SUCCESS;
   }
   lookForWhatIsNeeded( options );
   const int status = run( options, signals );
   if( options.check && status == EXIT_SUCCESS ) {
      std::puts( "systemd-box: a box can run here" );
   }
   return status;
}

// Ends the program with the signal that ended the box.
int endBy( int signal ) {
   const rlimit noCore{};
   setrlimit( RLIMIT_CORE, &noCore );
   sigset_t only;
   sigemptyset( &only );
   sigaddset( &only, signal );
   std::raise( signal );
   sigprocmask( SIG_UNBLOCK, &only, nullptr );
   return 128 + signal; // process 1 of a namespace survives the signal
}

} // namespace

} // namespace Box

int main( int argc, char** argv ) {
   // Otherwise another file could take the place of a closed standard stream.
   while( open( "/dev/null", O_RDWR ) <= STDERR_FILENO ) {
   }
   try {
      return Box::mainOf( argc, argv );
   } catch( const Box::Interrupted& interrupted ) {
      return Box::endBy( interrupted.signal );
   } catch( const std::exception& error ) {
      const int status = Box::report( error );
      if( status == Box::wrongUse ) {
         std::fputs( Box::usage, stderr );
      }
      return status;
   }
}
