// Fuzzes the wait for a job: the awaited number, then bodies of the signal JobRemoved.
#include "Wait.h"

namespace SodrelTest {

namespace {

// The state of the awaited job according to the signals.
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

   [[nodiscard]] std::string path() const {
      return "/org/freedesktop/systemd1/job/" + std::to_string( id );
   }

   [[nodiscard]] std::string outcome() const {
      const std::string waiting = "Sodrel::SdbusSyncException: JobRemovedMonitor::wait, ";
      if( unreadable ) {
         return waiting + "callback handling failed for " + path();
      }
      if( result.empty() ) {
         return waiting + "600.000000 timeout for " + path();
      }
      if( result == "done" || result == "skipped" ) {
         return "true";
      }
      return "Sodrel::SdbusJobException: JobRemovedMonitor::wait, job " + path() +
             " result: " + result;
   }
};

} // namespace

void fuzz( Input input ) {
   const std::uint32_t low = input.word();
   Job job{ low | std::uint32_t{ input.word() } << 16, {}, false };
   const Header header{ .path = "/org/freedesktop/systemd1",
                        .interface = "org.freedesktop.systemd1.Manager",
                        .member = "JobRemoved" };
   const auto record = recordOfWait(
      input, header, job, Sodrel::jobRemovedMonitorFactory, Tessel::String( job.path() ) );
   requireAttribute( *record, "callbackFailed", job.unreadable );
   requireAttribute( *record, "jobId", job.id );
   requireAttribute( *record, "result", Tessel::String( job.result ) );
}

} // namespace SodrelTest
