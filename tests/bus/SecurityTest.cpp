// What strangers on the bus, and the caller of a privileged program, can and cannot do.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>

#include <elf.h>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <support/ChildProcess.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

// A client of the bus that does not own the manager's name.
class Stranger {
 public:
   explicit Stranger( const PrivateBus& bus ) : connection_( busAt( bus.address() ) ) {}

   // Sends a signal of the manager object to one client alone, whatever its match rules.
   void send( const std::string& receiver, const char* member, const Body& content ) {
      sendSignal( connection_.get(), managerPath, managerInterface, member, content, receiver );
      roundTrip( connection_.get() );
   }

 private:
   BusPtr connection_;
};

std::string nameOnTheBus( Sdbus& client ) {
   const char* name = nullptr;
   checked( sd_bus_get_unique_name( client.sdbus(), &name ), "sd_bus_get_unique_name" );
   return name;
}

class AClientAmongStrangers : public ALibraryClient {
 protected:
   // Starts a unit as job 7 and does something when the wait begins, which ends soon in any case.
   // Returns the outcome.
   std::string whileWaiting( const Moments::Action& action, const char* unit = "web.service" ) {
      moments.hurryWaits( true );
      moments.clear();
      moments.atReading( 1, action );
      manager.onCall( "StartUnit", { replyJob( 7 ) } );
      return call( "StartUnit", unit );
   }

   void forge( uint32_t id, const std::string& result ) {
      stranger.send( name, "JobRemoved", body( "uoss", id, jobOf( id ), "web.service", result ) );
   }

   Stranger stranger{ bus };
   const std::string name = nameOnTheBus( *client );
};

// The bus compares the sender's name for broadcast signals only, and sd-bus relies on the bus.
TEST_F( AClientAmongStrangers, believesASignalThatOneOfThemSendsToItAlone ) {
   EXPECT_EQ( whileWaiting( [&] { forge( 7, "done" ); } ), jobOf( 7 ) );
   EXPECT_EQ(
      whileWaiting( [&] { forge( 7, "failed" ); } ),
      jobFailed + "wait, job " + jobOf( 7 ) + " result: failed" );
}

TEST_F( AClientAmongStrangers, failsWhenOneOfThemSendsItASignalThatCannotBeRead ) {
   EXPECT_EQ(
      whileWaiting( [&] { stranger.send( name, "JobRemoved", {} ); } ),
      syncFailed + "JobRemovedMonitor::wait, callback handling failed for " + jobOf( 7 ) );
}

TEST_F( AClientAmongStrangers, ignoresForgedEndsOfOtherJobs ) {
   EXPECT_EQ(
      whileWaiting( [&] {
         for( const uint32_t id : { 0U, 6U, 8U, 70U, 4294967295U } ) {
            forge( id, "failed" );
         }
         manager.run( { jobRemoved( 7, "done" ) } );
      } ),
      jobOf( 7 ) );
}

// A later read returns the manager's own reply, because the bus knows who was called.
TEST_F( AClientAmongStrangers, learnsTheTruthByReadingTheState ) {
   EXPECT_EQ( whileWaiting( [&] { forge( 7, "done" ); }, "idle.service" ), jobOf( 7 ) );
   EXPECT_EQ( outcomeOf( "unitPropertyS idle.service ActiveState" ), "inactive" );
}

// The second reload without a start counts as a bug in the program.
TEST_F( AClientAmongStrangers, isEndedByOneOfThemWhoForgesTheEndsOfTwoReloads ) {
   manager.onEveryCall( "Reload", { reply() } );
   EXPECT_EXIT(
      {
         // sd-bus refuses connections that were opened before a fork.
         const Tessel::Ptr< Sdbus > ownClient = sdbusFactory();
         const std::string ownName = nameOnTheBus( *ownClient );
         Stranger forger( bus );
         const auto forgeEnd = [&] { forger.send( ownName, "Reloading", body( "b", false ) ); };
         moments.clear();
         moments.atReading( 1, forgeEnd, 1 );
         moments.atReading( 1, forgeEnd, 2 );
         ownClient->managerCall( "Reload", false );
      },
      testing::KilledBySignal( SIGABRT ), assertionOfReload() );
}

TEST_F( AClientAmongStrangers, passesLongTextsUnchanged ) {
   const std::string huge( 100'000, 'x' );
   manager.onCall( "StartUnit", { error( "org.example.Refused", huge ) } );
   EXPECT_EQ(
      call( "StartUnit", huge ),
      failureOf( "asyncManagerCallSsO StartUnit " + huge + " replace" ) + ": " + huge );
   EXPECT_EQ( systemState(), "running" );
}

// A client may truncate a result that is longer than any of systemd's.
TEST_F( AClientAmongStrangers, reportsAtLeastTheBeginningOfALongResult ) {
   const std::string result( 100'000, 'x' );
   manager.onCall( "StartUnit", { replyJob( 7 ), jobRemoved( 7, result ) } );
   const std::string outcome = call( "StartUnit" );
   const std::string start = jobFailed + "wait, job " + jobOf( 7 ) + " result: ";
   EXPECT_THAT( start + result, testing::StartsWith( outcome ) );
   EXPECT_THAT( outcome, testing::StartsWith( start + "xxxxxxxxxxx" ) );
   EXPECT_EQ( systemState(), "running" );
}

// Marks a program that has just been started, and has stopped for its tracer, as more privileged
// than its caller, in the way the kernel marks set-user-ID programs.
void setSecure( pid_t program ) {
   int status = 0;
   ASSERT_EQ( waitpid( program, &status, 0 ), program );
   ASSERT_TRUE( WIFSTOPPED( status ) );
   std::ifstream stat( "/proc/" + std::to_string( program ) + "/stat" );
   std::string field;
   for( int i = 0; i < 28; ++i ) {
      stat >> field;
   }
   // The stack begins with the number of arguments, the arguments, a null, the environment, a null
   // and the auxiliary vector.
   unsigned long at = std::stoul( field );
   const auto next = [&] {
      at += sizeof( long );
      return ptrace( PTRACE_PEEKDATA, program, at - sizeof( long ), nullptr );
   };
   const long arguments = next();
   for( long i = 0; i <= arguments; ++i ) {
      next();
   }
   while( next() != 0 ) {
   }
   for( long type = next(); type != AT_SECURE; type = next() ) {
      ASSERT_NE( type, AT_NULL );
      next();
   }
   ASSERT_EQ( ptrace( PTRACE_POKEDATA, program, at, 1 ), 0 );
   ASSERT_EQ( ptrace( PTRACE_DETACH, program, nullptr, nullptr ), 0 );
}

// Runs a program whose environment enables traces, privileged or not. Returns its output and the
// number of files it left behind.
std::pair< std::string, long > traced( bool privileged ) {
   std::string folder = ( std::filesystem::temp_directory_path() / "security-XXXXXX" ).string();
   checked( mkdtemp( folder.data() ) ? 0 : -errno, "mkdtemp" );
   const std::string output = folder + "/output";
   const std::string files = folder + "/files";
   std::filesystem::create_directory( files );
   ChildProcess child( [&] {
      const int fd = open( output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600 );
      dup2( fd, STDERR_FILENO );
      setenv( "TESSEL_TRACE", "TracedProcess=*", 1 );
      setenv( "FENNET_TRACE", ( files + ",64K" ).c_str(), 1 );
      if( privileged ) {
         ptrace( PTRACE_TRACEME, 0, nullptr, nullptr );
      }
      execl( TRACED_PROCESS, TRACED_PROCESS, nullptr );
      return 1;
   } );
   if( privileged ) {
      setSecure( child.pid() );
   }
   EXPECT_EQ( child.wait(), 0 );
   std::ostringstream written;
   written << std::ifstream( output ).rdbuf();
   const std::filesystem::directory_iterator left( files );
   const long count = std::distance( begin( left ), end( left ) );
   std::filesystem::remove_all( folder );
   return { written.str(), count };
}

TEST( APrivilegedProgram, ignoresItsCallersEnvironment ) {
   const auto [ordinaryText, ordinaryFiles] = traced( false );
   EXPECT_NE( ordinaryText, "" );
   EXPECT_GT( ordinaryFiles, 0 );
   EXPECT_EQ( traced( true ), std::pair( std::string(), 0L ) );
}

} // namespace

} // namespace SodrelTest
