// Many clients at a time, in threads and in processes, while a target starts many units.
#include "Box.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <memory>
#include <regex>
#include <thread>

#include <support/ChildProcess.h>

namespace SodrelTest {

namespace {

// What an operation throws, without the job's number.
std::string outcomeOf( const std::function< void() >& operation ) {
   return std::regex_replace( thrownBy( operation ), std::regex( "/job/[0-9]+" ), "/job/N" );
}

// Drives units that no other client uses, and counts the operations and the wrong outcomes.
class Worker {
 public:
   explicit Worker( int number )
      : unit_( "instance@" + std::to_string( number ) + ".service" ),
        failing_( "oneshot-fails@" + std::to_string( number ) + ".service" ) {}

   void work( int rounds ) {
      const auto client = sdbusFactory();
      const auto call = [&]( const char* method, const std::string& unit ) {
         return outcomeOf( [&] { client->managerCallSsO( method, unit, "replace", false ); } );
      };
      for( int round = 0; round < rounds; ++round ) {
         expect( "nothing", call( "RestartUnit", unit_ ) );
         expect( "active", text( client->unitPropertyS( unit_, "ActiveState" ) ) );
         expect( "nothing", call( "ReloadUnit", unit_ ) );
         expect(
            "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job "
            "/org/freedesktop/systemd1/job/N result: failed",
            call( "StartUnit", failing_ ) );
         expect( "nothing", call( "StopUnit", unit_ ) );
      }
   }

   unsigned operations = 0;
   unsigned wrong = 0;

 private:
   void expect( const std::string& expected, const std::string& got ) {
      ++operations;
      if( got != expected ) {
         ++wrong;
         std::fprintf( stderr, "%s: %s\n", unit_.c_str(), got.c_str() );
      }
   }

   std::string unit_;
   std::string failing_;
};

class ManyClients : public ::testing::Test {
 protected:
   // Reports what all have counted.
   void TearDown() override {
      std::printf( "%u operations, %u wrong\n", operations, wrong );
      EXPECT_EQ( wrong, 0U );
   }

   void runThreads( int number, int rounds ) {
      std::deque< Worker > workers;
      std::vector< std::thread > threads;
      for( int i = 0; i < number; ++i ) {
         threads.emplace_back(
            [&worker = workers.emplace_back( i ), rounds] { worker.work( rounds ); } );
      }
      for( std::thread& thread : threads ) {
         thread.join();
      }
      for( const Worker& worker : workers ) {
         operations += worker.operations;
         wrong += worker.wrong;
      }
   }

   unsigned operations = 0;
   unsigned wrong = 0;
   // Subscribes, so that all get all signals.
   Observer observer;
};

TEST_F( ManyClients, inThreadsLearnTheirOwnOutcomes ) {
   runThreads( 50, 2 );
   EXPECT_EQ( operations, 50U * 2 * 5 );
}

TEST_F( ManyClients, inProcessesLearnTheirOwnOutcomes ) {
   constexpr int rounds = 1;
   std::vector< std::unique_ptr< ChildProcess > > processes;
   for( int i = 0; i < 200; ++i ) {
      processes.push_back( std::make_unique< ChildProcess >( [i] {
         Worker worker( i );
         worker.work( rounds );
         return static_cast< int >( worker.wrong );
      } ) );
   }
   for( const auto& process : processes ) {
      operations += 5 * rounds;
      wrong += static_cast< unsigned >( process->wait() );
   }
}

TEST_F( ManyClients, learnTheirOutcomesWhileATargetStartsAThousandUnits ) {
   run( "{ echo [Unit]; for i in $(seq 1000); do\n"
        "   echo Wants=oneshot-remains@$i.service; echo After=oneshot-remains@$i.service; done\n"
        "} > /run/systemd-box/units/thousand-units.target; systemctl daemon-reload" );
   std::string target;
   std::thread starter( [&] {
      target = outcomeOf( [] {
         sdbusFactory()->managerCallSsO( "StartUnit", "thousand-units.target", "replace", false );
      } );
   } );
   runThreads( 10, 2 );
   starter.join();

   EXPECT_EQ( target, "nothing" );
   EXPECT_EQ(
      run( "systemctl list-units --no-legend --state=active 'oneshot-remains@*' | wc -l" ),
      "1000" );
}

} // namespace

} // namespace SodrelTest
