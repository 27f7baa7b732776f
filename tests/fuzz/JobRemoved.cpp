// Fuzzes the wait for a job: the awaited number, then bodies of the signal JobRemoved.
#include "Wait.h"

namespace Sodrel::Fuzz {

namespace {

// What the signals say of the awaited job.
struct Job {
   std::uint32_t id;
   std::string result;
   bool unreadable = false;

   void hear( sd_bus_message* signal ) {
      std::uint32_t signalled = 0;
      const char* path = nullptr;
      const char* unit = nullptr;
      const char* word = nullptr;
      if( !readBasic( signal, 'u', &signalled ) || !readBasic( signal, 'o', &path ) ||
          !readBasic( signal, 's', &unit ) || !readBasic( signal, 's', &word ) ) {
         unreadable = true;
      } else if( signalled == id ) {
         result = word;
      }
   }

   std::string outcome( const std::string& path ) const {
      if( unreadable ) {
         return "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, callback handling failed "
                "for " +
                path;
      }
      if( result.empty() ) {
         return "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, 600.000000 timeout for " +
                path;
      }
      if( result == "done" || result == "skipped" ) {
         return "true";
      }
      return "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + path +
             " result: " + result;
   }
};

} // namespace

} // namespace Sodrel::Fuzz

int LLVMFuzzerTestOneInput( const std::uint8_t* data, std::size_t size ) {
   using namespace Sodrel::Fuzz;
   Input input( data, size );
   const std::uint32_t low = input.word();
   Job job{ low | std::uint32_t{ input.word() } << 16, {}, false };
   const std::string path = "/org/freedesktop/systemd1/job/" + std::to_string( job.id );

   PrivateConnection connection;
   connection.hearWith( [&]( sd_bus_message* signal ) { job.hear( signal ); } );
   const auto monitor = Sodrel::jobRemovedMonitorFactory( connection.bus() );
   const Header header{ .path = "/org/freedesktop/systemd1",
                        .interface = "org.freedesktop.systemd1.Manager",
                        .member = "JobRemoved" };
   sendSignals( connection, header, input );

   const std::string outcome = outcomeOf( *monitor, Tessel::String( path ) );
   requireSame( outcome, job.outcome( path ) );
   const auto record = monitor->dataIs();
   require( attributeOf< bool >( *record, "callbackFailed" ) == job.unreadable, "callbackFailed" );
   require( attributeOf< std::uint32_t >( *record, "jobId" ) == job.id, "jobId" );
   requireSame( attributeOf< Tessel::String >( *record, "result" ), job.result );
   return 0;
}
