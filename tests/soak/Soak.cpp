// The soak: several clients, and a killer of the bus and of units. Runs in a systemd box.
#include "Client.h"

#include <support/ChildProcess.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <sys/wait.h>

namespace {

using namespace SodrelTest;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

unsigned long busDeaths = 0;
unsigned long unitDeaths = 0;

// systemctl reaches the manager without the bus. Its complaints are part of the soak.
void run( const std::string& command ) {
   [[maybe_unused]] const int status = std::system( ( command + " >/dev/null 2>&1" ).c_str() );
}

// Kills or restarts the bus, or kills a unit.
void disturb( Shared& shared, std::mt19937_64& random ) {
   const auto chosen = [&]( unsigned last ) {
      return std::uniform_int_distribution( 0U, last )( random );
   };
   switch( chosen( 3 ) ) {
   case 0:
      ++busDeaths;
      return run( "systemctl kill --signal=KILL dbus.service" );
   case 1:
      ++busDeaths;
      return run( "systemctl restart dbus.service" );
   default:
      ++unitDeaths;
      const unsigned number = chosen( clients - 1 );
      ++shared.kills.at( number );
      // Waits until systemd has noticed.
      run( "systemctl kill --signal=KILL --wait soak@" + std::to_string( number ) + ".service" );
      ++shared.kills.at( number );
   }
}

void print( const Report& report, const std::string& label ) {
   std::printf( "%-7s", label.c_str() );
   for( const unsigned long number : report.calls ) {
      std::printf( " %8lu", number );
   }
   std::printf(
      " %8lu %9lu %9.2f %5ld ->%3ld %6ld ->%6ld\n", report.checked, report.reconnections,
      report.longest, report.descriptorsAtStart, report.descriptors, report.memoryAtStart,
      report.memory );
}

} // namespace

int main( int argc, char** argv ) {
   if( argc != 3 ) {
      std::fprintf( stderr, "usage: soak SECONDS SEED\n" );
      return 2;
   }
   const std::chrono::seconds time( std::strtoul( argv[1], nullptr, 10 ) );
   const std::uint64_t seed = std::strtoull( argv[2], nullptr, 10 );
   std::printf( "seed %llu\n", static_cast< unsigned long long >( seed ) );
   std::fflush( stdout );

   void* const memory =
      mmap( nullptr, sizeof( Shared ), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
   if( memory == MAP_FAILED ) {
      std::perror( "soak" );
      return EXIT_FAILURE;
   }
   Shared& shared = *new( memory ) Shared;
   std::vector< std::unique_ptr< ChildProcess > > processes;
   for( unsigned number = 0; number < clients; ++number ) {
      processes.push_back( std::make_unique< ChildProcess >( [&, number] {
         runClient( shared, number, seed + number + 1 );
         return EXIT_SUCCESS;
      } ) );
   }

   std::mt19937_64 random( seed );
   const Clock::time_point end = Clock::now() + time;
   while( Clock::now() < end ) {
      std::this_thread::sleep_for(
         milliseconds( std::uniform_int_distribution( 100, 1500 )( random ) ) );
      disturb( shared, random );
   }
   shared.over = true;
   unsigned long violations = 0;
   for( unsigned number = 0; number < clients; ++number ) {
      // A client that waits for a signal lost with its subscription notices the death of the bus.
      const auto id = static_cast< id_t >( processes[number]->pid() );
      siginfo_t ended{};
      while( waitid( P_PID, id, &ended, WEXITED | WNOHANG | WNOWAIT ) == 0 && ended.si_pid == 0 ) {
         run( "systemctl restart dbus.service" );
         std::this_thread::sleep_for( milliseconds( 500 ) );
      }
      const int status = processes[number]->wait();
      if( status != 0 ) {
         std::fprintf( stderr, "client %u: ended with %d\n", number, status );
         ++violations;
      }
      violations += shared.reports.at( number ).violations;
   }

   std::printf( "client  returned   no bus     call  message      job     sync    other  checked "
                "reconnect longest/s descriptors  memory/KiB\n" );
   for( unsigned number = 0; number < clients; ++number ) {
      print( shared.reports.at( number ), std::to_string( number ) );
   }
   std::printf(
      "%lu deaths of the bus, %lu of units, %lu violations\n", busDeaths, unitDeaths, violations );
   return violations == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
