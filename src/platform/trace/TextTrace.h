// Text traces: composing the text of one trace and handing it to where traces go.
#pragma once

#include <platform/Export.h>
#include <platform/trace/Facility.h>
#include <platform/trace/StringFormatter.h>

#include <iterator>
#include <string_view>

namespace Tessel {

// One text trace with its origin. Everything is borrowed for the length of the call.
struct TextTrace {
   // The facility's name, the level, the place in the source, an own tag or "", and the text.
   const char* facility;
   int level;
   const char* file;
   const char* function;
   int line;
   const char* tag;
   std::string_view text;
};

// Where text traces go.
class TESSEL_EXPORT TraceSink {
 public:
   // Takes one trace. What it throws reaches the traced operation.
   // Thread: called on the tracing thread, by several threads at a time.
   virtual void traceIs( const TextTrace& trace ) = 0;

 protected:
   ~TraceSink() = default;
};

// Sends the text traces that follow to `sink`; null sends them to standard error, one line each:
//
//    2026-11-21T02:32:38.123456Z 4711 Sodrel/8 src/Sodrel/Sodrel.cpp:57 managerCall: Call ...
//
// with the time in UTC, the thread's id and the facility with the level. Under the journal each
// line is preceded by its priority. A line longer than PIPE_BUF is cut.
// Gives the sink until now, null for standard error.
// Borrows the sink, which must outlive every trace that began before it was replaced.
// Thread: any.
TESSEL_EXPORT TraceSink* traceSinkIs( TraceSink* sink ) noexcept;

namespace Impl {

// Hands a finished text with its origin to the sink. `origin` is "LEVEL FILE:LINE FUNCTION" where
// that was joined beforehand, else empty.
TESSEL_EXPORT void vfmtrace( const TextTrace& trace, std::string_view origin );

} // namespace Impl

// Formats one text trace and hands it to the sink, whether or not its level is enabled. `origin` is
// "LEVEL FILE:LINE FUNCTION" where that was joined beforehand, else empty.
//
// Throws fmt::format_error when the format and the arguments do not fit.
template< typename... Args >
void fmtrace(
   std::string_view origin, const Orl::TraceHandle& handle, int level, const char* file,
   const char* function, int line, const char* tag, std::string_view format, const Args&... args ) {
   fmt::memory_buffer text;
   fmt::vformat_to(
      std::back_inserter( text ), fmt::string_view( format.data(), format.size() ),
      fmt::make_format_args( args... ) );
   Impl::vfmtrace(
      { handle.name(), level, file, function, line, tag, { text.data(), text.size() } }, origin );
}

// Likewise, for a trace whose origin is not joined yet.
template< typename... Args >
void fmtrace(
   const Orl::TraceHandle& handle, int level, const char* file, const char* function, int line,
   const char* tag, std::string_view format, const Args&... args ) {
   fmtrace( "", handle, level, file, function, line, tag, format, args... );
}

} // namespace Tessel
