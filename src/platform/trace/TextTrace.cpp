// The sink of text traces, and the one that writes lines to standard error.
#include <platform/trace/TextTrace.h>

#include <platform/trace/Line.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

// An argument of a trace, printed as its value.
template<>
struct fmt::formatter< Tessel::Impl::TraceArg > {
   static constexpr auto parse( format_parse_context& context ) { return context.begin(); }
   static auto format( const Tessel::Impl::TraceArg& argument, format_context& context ) {
      return std::visit(
         [&]( const auto& value ) { return fmt::format_to( context.out(), "{}", value ); },
         argument );
   }
};

namespace Tessel {

namespace {

// Release and acquire make a new sink's fields visible with it.
constinit std::atomic< TraceSink* > sink = nullptr;

// systemd names the socket that leads to the journal in this variable; it applies only while
// standard error is still that socket.
bool stderrIsJournal() {
   const char* const stream = std::getenv( "JOURNAL_STREAM" );
   struct stat status {};
   if( !stream || fstat( STDERR_FILENO, &status ) != 0 ) {
      return false;
   }
   Impl::Line socket;
   fmt::format_to( std::back_inserter( socket ), "{}:{}", status.st_dev, status.st_ino );
   return stream == std::string_view( socket.data(), socket.size() );
}

void writeToStderr( const TextTrace& trace ) {
   timespec now{};
   clock_gettime( CLOCK_REALTIME, &now );
   std::tm parts{};
   gmtime_r( &now.tv_sec, &parts );
   char second[32];
   std::strftime( second, sizeof second, "%Y-%m-%dT%H:%M:%S", &parts );

   Impl::Line line;
   const auto end = std::back_inserter( line );
   if( stderrIsJournal() ) {
      // Syslog's notice, informational and debug; a trace is never more urgent, whatever its level.
      fmt::format_to( end, "<{}>", std::clamp( trace.level, 5, 7 ) );
   }
   fmt::format_to(
      end, "{}.{:06}Z {} {}/{} {}:{} {}", second, now.tv_nsec / 1000, gettid(), trace.facility,
      trace.level, trace.file, trace.line, trace.function );
   if( *trace.tag ) {
      fmt::format_to( end, " [{}]", trace.tag );
   }
   if( !trace.text.empty() ) {
      fmt::format_to( end, ": " );
      Impl::appendEscaped( line, trace.text );
   }
   Impl::writeLine( line );
}

} // namespace

TraceSink* traceSinkIs( TraceSink* newSink ) noexcept {
   return sink.exchange( newSink, std::memory_order_acq_rel );
}

void Impl::vfmtrace(
   TextTrace trace, std::string_view format, std::initializer_list< TraceArg > arguments ) {
   const KeepErrno keepErrno;
   const int wanted = placeholders( format );
   if( wanted < 0 || wanted > static_cast< int >( arguments.size() ) ) {
      throw fmt::format_error( "argument not found" );
   }
   // {fmt} ignores arguments that have no placeholder.
   std::array< TraceArg, mostTraceArgs > args;
   std::copy( arguments.begin(), arguments.end(), args.begin() );
   Line text;
   fmt::vformat_to(
      std::back_inserter( text ), fmt::string_view( format.data(), format.size() ),
      fmt::make_format_args(
         args[0], args[1], args[2], args[3], args[4], args[5], args[6], args[7] ) );
   trace.text = { text.data(), text.size() };
   if( TraceSink* const current = sink.load( std::memory_order_acquire ) ) {
      current->traceIs( trace );
   } else {
      writeToStderr( trace );
   }
}

} // namespace Tessel
