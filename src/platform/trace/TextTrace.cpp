// The sink of text traces, and the one that writes lines to standard error.
#include <platform/trace/TextTrace.h>

#include <platform/trace/Line.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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
   Impl::ShortText id;
   char second[20];              // "YYYY-MM-DDTHH:MM:SS"
   std::time_t secondsTime = -1; // the second that there is a text of
};
[[gnu::tls_model( "initial-exec" )]] constinit thread_local ThreadTexts threadTexts = {};

// The thread's id.
const Impl::ShortText& threadText() {
   // The child of a fork runs on a thread with another id.
   [[maybe_unused]] static const int watched =
      pthread_atfork( nullptr, nullptr, [] { threadTexts.id.size = 0; } );
   ThreadTexts& texts = threadTexts;
   if( texts.id.size == 0 ) {
      const char* const end =
         std::to_chars( texts.id.text, std::end( texts.id.text ), gettid() ).ptr;
      texts.id.size = static_cast< std::size_t >( end - texts.id.text );
   }
   return texts.id;
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

// Numbers below 100 as two digits.
constexpr auto twoDigits = [] {
   std::array< char, 200 > digits{};
   for( std::size_t number = 0; number < 100; ++number ) {
      digits[2 * number] = static_cast< char >( '0' + number / 10 );
      digits[2 * number + 1] = static_cast< char >( '0' + number % 10 );
   }
   return digits;
}();

// A fraction of a second with all its six digits.
class Microseconds {
 public:
   // From the end, so that a copy of too many digits would show.
   explicit Microseconds( std::size_t microseconds ) {
      std::memcpy( text_ + 4, &twoDigits[2 * ( microseconds % 100 )], 2 );
      std::memcpy( text_ + 2, &twoDigits[2 * ( microseconds / 100 % 100 )], 2 );
      std::memcpy( text_, &twoDigits[2 * ( microseconds / 10'000 )], 2 );
   }
   [[nodiscard]] std::string_view text() const { return { text_, sizeof text_ }; }

 private:
   char text_[6];
};

// systemd tells a service by this variable which socket leads to the journal; it counts only
// where standard error still is that socket.
bool stderrIsJournal() {
   const char* stream = std::getenv( "JOURNAL_STREAM" );
   struct stat status {};
   return stream && fstat( STDERR_FILENO, &status ) == 0 &&
          stream == std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
}

// `origin` may be empty; then its parts are joined here.
void writeToStderr( const TextTrace& trace, std::string_view origin ) {
   static const bool journal = stderrIsJournal();
   timespec now{};
   clock_gettime( CLOCK_REALTIME, &now );
   const Microseconds fraction( static_cast< std::size_t >( now.tv_nsec ) / 1000 );

   Impl::Line line;
   if( journal ) {
      // Syslog's notice, informational and debug; a trace never alarms, whatever its level.
      line.put( '<', std::clamp( trace.level, 5, 7 ), '>' );
   }
   line.put(
      secondText( now.tv_sec ), '.', fraction.text(), "Z ", threadText(), ' ', trace.facility, '/',
      origin );
   if( origin.empty() ) {
      line.put( trace.level, ' ', trace.file, ':', trace.line, ' ', trace.function );
   }
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

void Impl::vfmtrace( const TextTrace& trace, std::string_view origin ) {
   const KeepErrno keepErrno;
   if( TraceSink* current = sink.load( std::memory_order_acquire ) ) {
      current->traceIs( trace );
   } else {
      writeToStderr( trace, origin );
   }
}

} // namespace Tessel
