// What strangers on the bus, and whoever starts a privileged program, can and cannot do.
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <support/BusPointers.h>
#include <support/ChildProcess.h>
#include <support/ScriptedManagerMessages.h>

#include "LibraryFixture.h"

namespace Sodrel::Test {

namespace {

// A client of the bus that does not own the manager's name.
class Stranger {
 public:
   explicit Stranger( const PrivateBus& bus ) : connection( busAt( bus.address() ) ) {}

   // Sends a signal of the manager object to one connection alone, whatever that listens to.
   void sendTo( const std::string& receiver, const char* member, const Body& content ) {
      sd_bus_message* raw = nullptr;
      checked(
         sd_bus_message_new_signal( connection.get(), &raw, managerPath, managerInterface, member ),
         "sd_bus_message_new_signal" );
      const MessagePtr signal( raw );
      Words words{ content.signature };
      words.insert( words.end(), content.values.begin(), content.values.end() );
      appendBody( raw, words );
      checked( sd_bus_message_set_destination( raw, receiver.c_str() ), "destination" );
      checked( sd_bus_send( connection.get(), raw, nullptr ), "sd_bus_send" );
      roundTrip( connection.get() );
   }

 private:
   BusPtr connection;
};

Body jobRemovedBody( uint32_t id, const std::string& result ) {
   return body( "uoss", id, jobOf( id ), "web.service", result );
}

class AClientAmongStrangers : public ALibraryClient {
 protected:
   // Does something when the wait begins, which ends soon whatever is heard.
   void whenWaiting( const Moments::Action& action ) {
      moments.hurryWaits( true );
      moments.atReading( 1, action );
   }

   Stranger stranger{ bus };
   const std::string name = [&] {
      const char* unique = nullptr;
      checked( sd_bus_get_unique_name( client->sdbus(), &unique ), "sd_bus_get_unique_name" );
      return std::string( unique );
   }();
};

// The bus compares the sender's name for signals to everybody only. sd-bus relies on that.
TEST_F( AClientAmongStrangers, believesASignalThatOneOfThemSendsToItAlone ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ) } );
   whenWaiting( [&] { stranger.sendTo( name, "JobRemoved", jobRemovedBody( 7, "done" ) ); } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

TEST_F( AClientAmongStrangers, failsWhenOneOfThemSendsItASignalThatCannotBeRead ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ) } );
   whenWaiting( [&] { stranger.sendTo( name, "JobRemoved", {} ); } );
   EXPECT_EQ(
      call( "StartUnit" ),
      "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, callback handling failed for " +
         jobOf( 7 ) );
}

TEST_F( AClientAmongStrangers, takesNoForgedNumberForItsJob ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ) } );
   whenWaiting( [&] {
      for( const uint32_t id : { 0U, 6U, 8U, 70U, 4294967295U } ) {
         stranger.sendTo( name, "JobRemoved", jobRemovedBody( id, "failed" ) );
      }
      manager.run( { jobRemoved( 7, "done" ) } );
   } );
   EXPECT_EQ( call( "StartUnit" ), jobOf( 7 ) );
}

// What is read afterwards is the manager's own answer: the bus knows whom it has asked.
TEST_F( AClientAmongStrangers, learnsTheTruthByReadingTheState ) {
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ) } );
   whenWaiting( [&] { stranger.sendTo( name, "JobRemoved", jobRemovedBody( 7, "done" ) ); } );
   EXPECT_EQ( call( "StartUnit", "idle.service" ), jobOf( 7 ) );
   EXPECT_EQ(
      outcomeOf( [&] { return client->unitPropertyS( "idle.service", "ActiveState" ); } ),
      "inactive" );
}

TEST_F( AClientAmongStrangers, takesLongTextsWhole ) {
   const std::string huge( 100'000, 'x' );
   manager.onCall( "StartUnit", { reply( jobPath( 7 ) ), jobRemoved( 7, huge ) } );
   EXPECT_EQ(
      call( "StartUnit" ), "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + jobOf( 7 ) +
                              " result: " + huge );
   manager.onCall( "StartUnit", { error( "org.example.Refused", huge ) } );
   EXPECT_EQ(
      call( "StartUnit", huge ),
      "Sodrel::SdbusCallException: Sdbus::asyncManagerCallSsO, sd-bus call StartUnit " + huge +
         " replace failed: " + huge );
   EXPECT_EQ( systemState(), "running" );
}

// Runs a traced program whose real user is another than the effective one, as a set-user-ID program
// has it, or not; returns what it has written and how many files it has left.
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
      constexpr uid_t nobody = 65534;
      if( privileged && setresuid( nobody, 0, 0 ) < 0 ) {
         return 1;
      }
      execl( TRACED_PROCESS, TRACED_PROCESS, nullptr );
      return 1;
   } );
   EXPECT_EQ( child.wait(), 0 );
   std::ostringstream written;
   written << std::ifstream( output ).rdbuf();
   const std::filesystem::directory_iterator left( files );
   const long count = std::distance( begin( left ), end( left ) );
   std::filesystem::remove_all( folder );
   return { written.str(), count };
}

TEST( APrivilegedProgram, doesNotHeedItsCallersEnvironment ) {
   const auto [ordinaryText, ordinaryFiles] = traced( false );
   EXPECT_NE( ordinaryText, "" );
   EXPECT_GT( ordinaryFiles, 0 );
   EXPECT_EQ( traced( true ), std::pair( std::string(), 0L ) );
}

} // namespace

} // namespace Sodrel::Test
