// Text traces: composing the text of a trace and passing it to the sink.
#pragma once

#include <platform/Export.h>
#include <platform/trace/Facility.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <type_traits>
#include <variant>

namespace Tessel {

/// One text trace with its origin. Borrows everything for the duration of the call.
struct TextTrace {
   const char* facility;  ///< the facility's name
   int level;             ///< 0 to 31
   const char* file;      ///< the source file's path, from src/ on
   const char* function;  ///< the function's plain name
   int line;              ///< in the source file
   const char* tag;       ///< "" for TRACE
   std::string_view text; ///< may contain anything, including control characters
};

/// A destination for text traces.
class TESSEL_EXPORT TraceSink {
 public:
   /// Takes one trace. Exceptions propagate to the traced operation.
   ///
   /// Thread: runs on the tracing thread, possibly on several threads at once.
   virtual void traceIs( const TextTrace& trace ) = 0;

 protected:
   ~TraceSink() = default;
};

/// Sends subsequent text traces to `sink`; null sends them to standard error, one line each:
///
///     2026-11-21T02:32:38.123456Z 4711 Sodrel/8 src/Sodrel/Sodrel.cpp:57 managerCall: Call ...
///
/// with the time in UTC, the thread's id and the facility with the level. Control characters and
/// invalid UTF-8 are written as \\xHH. Under the journal, each line starts with its priority. A
/// line longer than PIPE_BUF is cut.
///
/// Returns the previous sink, null for standard error.
/// Borrows the sink, which must outlive every trace that began before it was replaced.
/// Thread: any.
TESSEL_EXPORT TraceSink* traceSinkIs( TraceSink* sink ) noexcept;

namespace Impl {

// The number of {} in a format; -1 if it has any braces other than {}, {{ and }}.
constexpr int placeholders( std::string_view format ) {
   int count = 0;
   std::size_t at = format.find_first_of( "{}" );
   while( at != std::string_view::npos ) {
      const std::string_view pair = format.substr( at, 2 );
      if( pair == "{}" ) {
         ++count;
      } else if( pair != "{{" && pair != "}}" ) {
         return -1;
      }
      at = format.find_first_of( "{}", at + 2 );
   }
   return count;
}

// One argument, whatever its type in the code. Borrows strings.
using TraceArg =
   std::variant< std::string_view, bool, std::int32_t, std::uint32_t, std::int64_t, std::uint64_t >;

template< typename T >
concept Character = std::same_as< T, char > || std::same_as< T, wchar_t > ||
   std::same_as< T, char8_t > || std::same_as< T, char16_t > || std::same_as< T, char32_t >;

template< typename T >
TraceArg traceArg( const T& arg ) {
   if constexpr( std::convertible_to< const T&, const char* > ) {
      const char* const text = arg;
      return std::string_view( text ? text : "" );
   } else if constexpr( std::convertible_to< const T&, std::string_view > ) {
      return std::string_view( arg );
   } else if constexpr( std::same_as< T, bool > ) {
      return arg;
   } else {
      static_assert(
         std::integral< T > && !Character< T >,
         "an argument of a trace is a string, a bool or an integer" );
      constexpr bool narrow = sizeof( T ) <= sizeof( std::int32_t );
      using Signed = std::conditional_t< narrow, std::int32_t, std::int64_t >;
      using Unsigned = std::conditional_t< narrow, std::uint32_t, std::uint64_t >;
      return std::conditional_t< std::is_signed_v< T >, Signed, Unsigned >( arg );
   }
}

// The maximum number of arguments of a trace.
inline constexpr std::size_t mostTraceArgs = 8;

// Formats the text and passes it to the sink with its origin.
TESSEL_EXPORT void
vfmtrace( TextTrace trace, std::string_view format, std::initializer_list< TraceArg > arguments );

} // namespace Impl

/// Formats one text trace with {fmt} and passes it to the sink, even if its level is not enabled.
///
/// The format has {} as placeholders; the arguments are up to 8 strings, bools and integers. A null
/// C string is treated as an empty one. A line of up to PIPE_BUF bytes needs no allocation.
/// Throws fmt::format_error if the arguments do not match the format.
template< typename... Args >
void fmtrace(
   const Orl::TraceHandle& handle, int level, const char* file, const char* function, int line,
   const char* tag, std::string_view format, const Args&... args ) {
   static_assert( sizeof...( Args ) <= Impl::mostTraceArgs, "a trace has 8 arguments at most" );
   Impl::vfmtrace(
      { handle.name(), level, file, function, line, tag, {} }, format,
      { Impl::traceArg( args )... } );
}

} // namespace Tessel
