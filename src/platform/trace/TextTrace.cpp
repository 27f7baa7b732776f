// The sink of text traces, and the one that writes lines to standard error.
#include <platform/trace/TextTrace.h>

#include <platform/trace/Line.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel {

namespace {

// Only pointer-sized loads and stores; release and acquire make a new sink's fields seen with it.
constinit std::atomic< TraceSink* > sink = nullptr;

// What lines of one thread have in common, kept as text.
struct ThreadTexts {
   char id[12];
   std::uint8_t idSize;
   char second[20]; // "YYYY-MM-DDTHH:MM:SS"
   std::time_t secondsTime;
};
[[gnu::tls_model( "initial-exec" )]] constinit thread_local ThreadTexts threadTexts = {};

// The thread's id.
std::string_view threadText() {
   // The child of a fork runs on a thread with another id.
   [[maybe_unused]] static const int watched =
      pthread_atfork( nullptr, nullptr, [] { threadTexts.idSize = 0; } );
   ThreadTexts& texts = threadTexts;
   if( texts.idSize == 0 ) {
      const char* const end = std::to_chars( texts.id, std::end( texts.id ), gettid() ).ptr;
      texts.idSize = static_cast< std::uint8_t >( end - texts.id );
   }
   return { texts.id, texts.idSize };
}

// A time in UTC without its fraction.
std::string_view secondText( std::time_t time ) {
   ThreadTexts& texts = threadTexts;
   if( time != texts.secondsTime ) {
      std::tm parts{};
      gmtime_r( &time, &parts );
      std::strftime( texts.second, sizeof texts.second, "%Y-%m-%dT%H:%M:%S", &parts );
      texts.secondsTime = time;
   }
   return { texts.second, sizeof texts.second - 1 };
}

// systemd tells a service by this variable which socket leads to the journal; it counts only
// where standard error still is that socket.
bool stderrIsJournal() {
   const char* stream = std::getenv( "JOURNAL_STREAM" );
   struct stat status {};
   return stream && fstat( STDERR_FILENO, &status ) == 0 &&
          stream == std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
}

void writeToStderr( const TextTrace& trace ) {
   static const bool journal = stderrIsJournal();
   timespec now{};
   clock_gettime( CLOCK_REALTIME, &now );
   // A million more gives the microseconds all six digits, behind a first one that becomes the dot.
   char fraction[7];
   std::to_chars( fraction, std::end( fraction ), 1'000'000 + now.tv_nsec / 1000 );
   fraction[0] = '.';

   Impl::Line line;
   if( journal ) {
      // Syslog's notice, informational and debug; a trace never alarms, whatever its level.
      line.put( '<', std::clamp( trace.level, 5, 7 ), '>' );
   }
   line.put(
      secondText( now.tv_sec ), std::string_view( fraction, sizeof fraction ), "Z ", threadText(),
      ' ', trace.facility, '/', trace.level, ' ', trace.file, ':', trace.line, ' ',
      trace.function );
   if( *trace.tag ) {
      line.put( " [", trace.tag, ']' );
   }
   if( !trace.text.empty() ) {
      line.put( ": " );
      line.putEscaped( trace.text );
   }
   line.write();
}

} // namespace

TraceSink* traceSinkIs( TraceSink* newSink ) noexcept {
   return sink.exchange( newSink, std::memory_order_acq_rel );
}

void Impl::vfmtrace(
   const Orl::TraceHandle& handle, int level, const char* file, const char* function, int line,
   const char* tag, std::string_view text ) {
   const KeepErrno keepErrno;
   const TextTrace trace{ handle.name(), level, file, function, line, tag, text };
   if( TraceSink* current = sink.load( std::memory_order_acquire ) ) {
      current->traceIs( trace );
   } else {
      writeToStderr( trace );
   }
}

} // namespace Tessel
