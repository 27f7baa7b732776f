// A service that restarts a unit whenever it receives SIGHUP, and is watched by systemd meanwhile.
//
//    restarter UNIT
#include <Sodrel/Sodrel.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <stop_token>
#include <thread>

#include <systemd/sd-daemon.h>

namespace {

using Clock = std::chrono::steady_clock;

// The limits of sd-bus and of the wait add up to less.
constexpr std::chrono::minutes longestOperation( 15 );

// Until when the main thread may be busy.
std::atomic< Clock::time_point > deadline( Clock::time_point::max() );

// Tells systemd, twice in each period of the watchdog, that the service is alive. It has a thread
// of its own, because the main thread waits for as long as the restart takes.
void answerWatchdog( const std::stop_token& stop ) {
   std::uint64_t period = 0;
   if( sd_watchdog_enabled( /*unset_environment*/ false, &period ) <= 0 ) {
      return;
   }
   std::mutex mutex;
   std::condition_variable_any stopped;
   std::unique_lock lock( mutex );
   do {
      if( Clock::now() < deadline.load() ) {
         sd_notify( /*unset_environment*/ false, "WATCHDOG=1" );
      }
      stopped.wait_for( lock, stop, std::chrono::microseconds( period / 2 ), [] { return false; } );
   } while( !stop.stop_requested() );
}

void restart( Sodrel::Sdbus& systemd, const char* unit ) {
   deadline = Clock::now() + longestOperation;
   try {
      systemd.managerCallSsO( "RestartUnit", unit, "replace", /*async*/ false );
      std::printf( "%s restarted\n", unit );
   } catch( const Sodrel::Exception& error ) {
      std::printf( "%s\n", error.what() );
   }
   std::fflush( stdout );
   deadline = Clock::time_point::max();
}

} // namespace

int main( int argc, char** argv ) {
   if( argc != 2 ) {
      std::fprintf( stderr, "usage: %s UNIT\n", argv[0] );
      return 2;
   }
   // Blocked in all threads, so that no signal interrupts a wait.
   sigset_t signals;
   sigemptyset( &signals );
   sigaddset( &signals, SIGHUP );
   sigaddset( &signals, SIGTERM );
   sigprocmask( SIG_BLOCK, &signals, nullptr );
   try {
      auto systemd = Sodrel::sdbusFactory();
      const std::jthread watchdog( answerWatchdog );
      sd_notify( /*unset_environment*/ false, "READY=1" );
      int signal = 0;
      while( sigwait( &signals, &signal ) == 0 && signal != SIGTERM ) {
         restart( *systemd, argv[1] );
      }
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
