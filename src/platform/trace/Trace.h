// The trace line: TRACE in operations, TRACE_FACILITY once in each source file.
//
//    TRACE_FACILITY( "Sodrel" );
//    ...
//    TRACE( 8, "Get {} property of {} with sd-bus", property, unit );
//
// A trace writes a record into the thread's ring buffer when the process has a default ring-buffer
// handle, then a text when the level is enabled in the file's facility. Where neither is on, it
// formats and converts nothing.
#pragma once

#include <platform/trace/FennetHandle.h>
#include <platform/trace/MsgDesc.h>
#include <platform/trace/Placeholders.h>
#include <platform/trace/RingBuf.h>
#include <platform/trace/TextTrace.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

namespace Tessel {

namespace Impl {

template< typename... Args >
std::integral_constant< int, sizeof...( Args ) > argumentCount( const Args&... );

template< typename T >
concept TraceString = std::convertible_to< const T&, std::string_view >;

template< typename T >
concept TraceNumber = std::integral< T > && sizeof( T ) <= sizeof( std::int64_t ) &&
                      !std::same_as< T, char > && !std::same_as< T, wchar_t > &&
                      !std::same_as< T, char8_t > && !std::same_as< T, char16_t > &&
                      !std::same_as< T, char32_t >;

// The type as which an argument stands in a record.
template< TraceNumber T >
using RingNumberFor = std::conditional_t<
   std::same_as< T, bool >, bool,
   std::conditional_t<
      sizeof( T ) <= 4,
      std::conditional_t< std::signed_integral< T >, std::int32_t, std::uint32_t >,
      std::conditional_t< std::signed_integral< T >, std::int64_t, std::uint64_t > > >;

template< typename T >
constexpr const char* argumentCode() {
   static_assert(
      TraceString< T > || TraceNumber< T >,
      "an argument of a trace is a string, a bool or an integer" );
   if constexpr( TraceString< T > ) {
      return "p";
   } else if constexpr( std::same_as< T, bool > ) {
      return "b";
   } else if constexpr( std::signed_integral< T > ) {
      return sizeof( T ) <= 4 ? "si" : "sl";
   } else {
      return sizeof( T ) <= 4 ? "ui" : "ul";
   }
}

template< typename... Args >
inline constexpr std::array< const char*, sizeof...( Args ) > argumentCodes = {
   argumentCode< Args >()...
};

// An argument as {fmt} is given it: strings as plain text, which is how their formatter prints
// them, and a null C string as an empty one.
template< typename T >
const T& printable( const T& arg ) {
   return arg;
}
inline std::string_view printable( const char* arg ) {
   return arg ? arg : "";
}
inline std::string_view printable( const String& arg ) {
   return arg;
}

constexpr std::size_t digitsOf( int number ) {
   return number < 10 ? 1 : 1 + digitsOf( number / 10 );
}

// The text "LEVEL FILE:LINE FUNCTION" of a trace's origin, of numbers that are not negative.
template< int level, int line, std::size_t fileSize, std::size_t functionSize >
constexpr auto originOf( const char ( &file )[fileSize], const char ( &function )[functionSize] ) {
   // The places of the two NULs and one more are those of the three separators.
   std::array< char, digitsOf( level ) + fileSize + digitsOf( line ) + functionSize + 1 > origin{};
   char* end = origin.data();
   const auto put = [&]( std::string_view text ) { end = std::ranges::copy( text, end ).out; };
   const auto putNumber = [&]( int number ) {
      char* digit = end += digitsOf( number );
      do {
         *--digit = static_cast< char >( '0' + number % 10 );
         number /= 10;
      } while( number > 0 );
   };
   putNumber( level );
   put( " " );
   put( { file, fileSize - 1 } );
   put( ":" );
   putNumber( line );
   put( " " );
   put( { function, functionSize - 1 } );
   return origin;
}

template< TraceString T >
bool putArgument( Fennet::RingBuf& ring, const T& arg ) {
   return put( ring, std::string_view( printable( arg ) ) );
}
template< TraceNumber T >
bool putArgument( Fennet::RingBuf& ring, T arg ) {
   return put( ring, RingNumberFor< T >( arg ) );
}

} // namespace Impl

// One place in the code that traces: all that is constant about it. Borrows what it is given for
// ever.
class TracePoint {
 public:
   // `msgId` is 0 until the first record needs one.
   constexpr TracePoint(
      const char* file, int line, const char* function, const char* format, int level,
      const Orl::TraceHandle& ( *facility )(), std::atomic< int >& msgId )
      : file_( file ),
        line_( line ),
        function_( function ),
        format_( format ),
        level_( level ),
        facility_( facility ),
        msgId_( msgId ) {}

   // Traces: the ring-buffer record, then the text. `origin` is what Impl::originOf gives.
   //
   // Ends the process unless the message id, which a record needs, is 0 or more.
   template< typename... Args >
   void trace( std::string_view origin, const Args&... args ) const {
      // Acquire: the handle was published whole.
      if( auto* const handle = Fennet::defaultFennetHandle.load( std::memory_order_acquire ) )
         [[unlikely]] {
         record( *handle, args... );
      }
      if( facility_().enabled( level_ ) ) [[unlikely]] {
         text( origin, args... );
      }
   }

 private:
   template< typename... Args >
   [[gnu::noinline]] void record( Fennet::TraceHandle& handle, const Args&... args ) const {
      Fennet::TraceFile* const file = handle.mtTraceFile();
      if( !file ) [[unlikely]] {
         return;
      }
      // Relaxed: the id is a number that stands for nothing else in memory.
      int msgId = msgId_.load( std::memory_order_relaxed );
      if( !file->describes( msgId ) ) [[unlikely]] {
         if( !describe( *file, Impl::argumentCodes< Args... > ) ) {
            return;
         }
         msgId = msgId_.load( std::memory_order_relaxed );
      }
      Fennet::RingBuf ring;
      ring.startMsg( *file, msgId );
      (void)( Impl::putArgument( ring, args ) && ... );
      ring.endMsg();
   }

   template< typename... Args >
   [[gnu::noinline]] void text( std::string_view origin, const Args&... args ) const {
      fmtrace(
         origin, facility_(), level_, file_, function_, line_, "", format_,
         Impl::printable( args )... );
   }

   // Registers the trace point's description in the file; false when it takes none.
   //
   // Ends the process when the message id is negative.
   TESSEL_EXPORT bool
   describe( Fennet::TraceFile& file, std::span< const char* const > codes ) const;

   const char* file_;
   int line_;
   const char* function_;
   const char* format_;
   int level_;
   const Orl::TraceHandle& ( *facility_ )();
   std::atomic< int >& msgId_;
};

} // namespace Tessel

// Gives the source file its facility: stands once, in a namespace around all its traces. The handle
// is made by the first trace and needs no destruction.
#define TRACE_FACILITY( name )                                                                     \
   namespace {                                                                                     \
   [[maybe_unused, gnu::always_inline]] inline const ::Orl::TraceHandle& traceFacility() {         \
      static const ::Orl::TraceHandle handle( name, false );                                       \
      return handle;                                                                               \
   }                                                                                               \
   }                                                                                               \
   static_assert( true )

// Traces `format`, a literal, with one argument for each {} in it: strings, bools and integers.
// `level` is a constant from 0 to 31. Each argument is evaluated once, whatever is on or off.
#define TRACE( level, format, ... )                                                                \
   do {                                                                                            \
      static_assert( 0 <= ( level ) && ( level ) < 32, "a trace level is 0 to 31" );               \
      static_assert(                                                                               \
         ::Tessel::placeholders( format ) ==                                                       \
            decltype( ::Tessel::Impl::argumentCount( __VA_ARGS__ ) )::value,                       \
         "a trace's format has one {} for each argument, and no other braces but {{ and }}" );     \
      static constinit ::std::atomic< int > traceMsgId = 0;                                        \
      static constexpr auto traceOrigin =                                                          \
         ::Tessel::Impl::originOf< level, __LINE__ >( __FILE__, __func__ );                        \
      static constexpr ::Tessel::TracePoint tracePoint(                                            \
         __FILE__, __LINE__, __func__, format, level, traceFacility, traceMsgId );                 \
      tracePoint.trace( { traceOrigin.data(), traceOrigin.size() } __VA_OPT__(, ) __VA_ARGS__ );   \
   } while( false )
