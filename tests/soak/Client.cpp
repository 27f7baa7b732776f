// Calling the manager at random, and comparing outcomes with the actual state.
#include "Client.h"

#include <Sodrel/Sodrel.h>
#include <platform/trace/TextTrace.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include <unistd.h>

// From a sanitizer's runtime; g++ has no header for it.
extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes();

namespace SodrelTest {

using namespace Sodrel;

namespace {

long openDescriptors() {
   return std::distance( std::filesystem::directory_iterator( "/proc/self/fd" ), {} );
}

// Returns KiB: resident memory, or allocated memory under a sanitizer with its own allocator.
long memoryInUse() {
   if( __sanitizer_get_current_allocated_bytes ) {
      return static_cast< long >( __sanitizer_get_current_allocated_bytes() / 1024 );
   }
   long all = 0;
   long resident = 0; // pages
   std::ifstream( "/proc/self/statm" ) >> all >> resident;
   return resident * sysconf( _SC_PAGESIZE ) / 1024;
}

// Counts the reconnections, the only traces at level 5.
class Reconnections : public Tessel::TraceSink {
 public:
   explicit Reconnections( unsigned long& number ) : count( number ) {
      Tessel::traceSinkIs( this );
      Orl::TraceHandle( "Sodrel", false ).levelsIs( Orl::TraceLevels{ 1 } << 5 );
   }
   ~Reconnections() { Tessel::traceSinkIs( nullptr ); }

   void traceIs( const Tessel::TextTrace& ) override { ++count; }

 private:
   unsigned long& count;
};

class Client {
 public:
   Client( Shared& sharedByAll, unsigned number, std::uint64_t seed )
      : shared( &sharedByAll ),
        report( &sharedByAll.reports.at( number ) ),
        kills( &sharedByAll.kills.at( number ) ),
        label( std::to_string( number ) ),
        random( seed ) {}

   void run() {
      const Reconnections reconnections( report->reconnections );
      while( !client && !shared->over ) {
         attempt( "sdbusFactory", [&] { client = sdbusFactory(); } );
      }
      reload();
      report->descriptorsAtStart = openDescriptors();
      report->memoryAtStart = memoryInUse();
      while( !shared->over ) {
         step();
      }
      // One descriptor is the connection's, which is missing after a failed reconnection.
      report->descriptors = openDescriptors();
      report->memory = memoryInUse();
      if( report->descriptors > report->descriptorsAtStart + 1 ) {
         violation( "descriptors have leaked" );
      }
      constexpr long allowance = 4096;
      if( report->memory > report->memoryAtStart + allowance ) {
         violation( "memory has leaked" );
      }
   }

 private:
   // Does one thing at random, most often a start of a unit.
   void step() {
      switch( std::uniform_int_distribution( 0, 9 )( random ) ) {
      case 2:
         return expect( { "active" }, "RestartUnit" );
      case 3: // a failed unit stays failed
         return expect( { "inactive", "failed" }, "StopUnit" );
      case 4:
         attempt( "Subscribe", [&] { client->managerCall( "Subscribe", true ); } );
         return expect( { "active" }, "ReloadOrRestartUnit" );
      case 5:
         return reload();
      case 6:
         return call( "StartUnit", failing ) ? violation( "a unit that fails was started" )
                                             : void();
      case 7:
         return void( call( "StartUnit", common ) );
      case 8:
         return void( call( "StopUnit", common ) );
      case 9:
         return void(
            attempt( "SystemState", [&] { client->managerPropertyS( "SystemState" ); } ) );
      default:
         return expect( { "active" }, "StartUnit" );
      }
   }

   void reload() {
      attempt( "Subscribe", [&] { client->managerCall( "Subscribe", true ); } );
      attempt( "Reload", [&] { client->managerCall( "Reload", false ); } );
   }

   bool call( const char* method, const std::string& unit ) {
      return attempt( method, [&] {
         const std::string job( client->managerCallSsO( method, unit.c_str(), "replace", false ) );
         if( !job.starts_with( "/org/freedesktop/systemd1/job/" ) ) {
            violation( std::string( method ) + " returns " + job );
         }
      } );
   }

   // Calls the method for the client's own unit. If it returns and the unit has not been killed in
   // the meantime, the unit must be in one of these states; an unloaded unit has none.
   void expect( std::initializer_list< std::string_view > states, const char* method ) {
      const unsigned killsBefore = *kills;
      if( !call( method, own ) ) {
         return;
      }
      std::string found;
      const bool read = attempt(
         "ActiveState", [&] { found = client->unitPropertyS( own.c_str(), "ActiveState" ); } );
      if( !read || killsBefore % 2 != 0 || *kills != killsBefore ) {
         return;
      }
      ++report->checked;
      if( std::find( states.begin(), states.end(), found ) == states.end() ) {
         violation( std::string( method ) + " has returned, but the unit is " + found );
      }
   }

   // Returns whether the operation returned.
   bool attempt( const char* what, const std::function< void() >& operation ) {
      using Clock = std::chrono::steady_clock;
      const Clock::time_point start = Clock::now();
      Outcome outcome = Outcome::returned;
      try {
         operation();
      } catch( const Tessel::Exception& exception ) {
         const std::string name( exception.name() );
         outcome = outcomeOf( name, exception.what() );
         if( outcome == Outcome::undocumented ) {
            violation( std::string( what ) + ": " + name + ": " + exception.what() );
         }
      }
      const std::chrono::duration< double > taken = Clock::now() - start;
      report->longest = std::max( report->longest, taken.count() );
      ++report->calls.at( static_cast< std::size_t >( outcome ) );
      return outcome == Outcome::returned;
   }

   void violation( const std::string& text ) {
      ++report->violations;
      std::fprintf( stderr, "client %s: %s\n", label.c_str(), text.c_str() );
   }

   Shared* shared;
   Report* report;
   std::atomic< unsigned >* kills;
   std::string label;
   std::mt19937_64 random;
   // No other client starts or stops its own unit; all share the common one.
   std::string own = "soak@" + label + ".service";
   std::string failing = "soak-fails@" + label + ".service";
   std::string common = "soak@common.service";
   Tessel::Ptr< Sdbus > client;
};

} // namespace

void runClient( Shared& shared, unsigned number, std::uint64_t seed ) {
   Client( shared, number, seed ).run();
}

} // namespace SodrelTest
