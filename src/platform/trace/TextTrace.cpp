// The sink of text traces, and the one that writes lines to standard error.
#include <platform/trace/TextTrace.h>

#include <platform/trace/Line.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

#include <fmt/args.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel {

namespace {

// Release and acquire make a new sink's fields visible with it.
constinit std::atomic< TraceSink* > sink = nullptr;

// systemd names the socket that leads to the journal in this variable; it counts only while
// standard error still is that socket.
bool stderrIsJournal() {
   const char* const stream = std::getenv( "JOURNAL_STREAM" );
   struct stat status {};
   return stream && fstat( STDERR_FILENO, &status ) == 0 &&
          stream == fmt::format( "{}:{}", status.st_dev, status.st_ino );
}

const bool toJournal = stderrIsJournal();

void writeToStderr( const TextTrace& trace ) {
   timespec now{};
   clock_gettime( CLOCK_REALTIME, &now );
   // Syslog's notice, informational and debug; a trace never alarms, whatever its level.
   std::string line = toJournal ? fmt::format( "<{}>", std::clamp( trace.level, 5, 7 ) ) : "";
   line += fmt::format(
      "{:%Y-%m-%dT%H:%M:%S}.{:06}Z {} {}/{} {}:{} {}", fmt::gmtime( now.tv_sec ),
      now.tv_nsec / 1000, gettid(), trace.facility, trace.level, trace.file, trace.line,
      trace.function );
   if( *trace.tag ) {
      line += fmt::format( " [{}]", trace.tag );
   }
   if( !trace.text.empty() ) {
      line += ": " + Impl::escaped( trace.text );
   }
   Impl::writeLine( std::move( line ) );
}

} // namespace

TraceSink* traceSinkIs( TraceSink* newSink ) noexcept {
   return sink.exchange( newSink, std::memory_order_acq_rel );
}

void Impl::vfmtrace(
   TextTrace trace, std::string_view format, std::initializer_list< TraceArg > arguments ) {
   const KeepErrno keepErrno;
   fmt::dynamic_format_arg_store< fmt::format_context > store;
   for( const TraceArg& argument : arguments ) {
      std::visit( [&]( const auto& value ) { store.push_back( value ); }, argument );
   }
   const std::string text = fmt::vformat( format, store );
   trace.text = text;
   if( TraceSink* const current = sink.load( std::memory_order_acquire ) ) {
      current->traceIs( trace );
   } else {
      writeToStderr( trace );
   }
}

} // namespace Tessel
