// The trace line: TRACE in operations, TRACE_FACILITY once in each source file.
//
//    TRACE_FACILITY( "Sodrel" );
//    ...
//    TRACE( 8, "Get {} property of {} with sd-bus", property, unit );
//
// A trace writes a record into the thread's ring buffer if the process has a default ring-buffer
// handle, then a text if the level is enabled in the file's facility. If neither is the case, it
// formats and converts nothing.
#pragma once

#include <platform/Export.h>
#include <platform/trace/Facility.h>
#include <platform/trace/FennetHandle.h>
#include <platform/trace/TextTrace.h>

#include <atomic>
#include <initializer_list>
#include <type_traits>

namespace Tessel {

namespace Impl {

template< typename... Args >
std::integral_constant< int, sizeof...( Args ) > argumentCount( const Args&... );

} // namespace Impl

/// One place in the code that traces: everything about it that is constant. Borrows its members for
/// the life of the process.
struct TracePoint {
   const char* file;                 ///< the source file's path, from src/ on
   int line;                         ///< in the source file
   const char* function;             ///< the function's plain name
   const char* format;               ///< with one {} for each argument
   int level;                        ///< 0 to 31
   const Orl::TraceHandle& facility; ///< of the source file
   std::atomic< int >& msgId;        ///< 0 until the first record needs one

   /// Writes the ring-buffer record, which is lost if there is no memory for it, then the text.
   ///
   /// Ends the process if a record is to be written and the message id is negative.
   template< typename... Args >
   void trace( const Args&... args ) const {
      // Acquire: makes the handle's fields visible with it.
      if( auto* const handle = Fennet::defaultFennetHandle.load( std::memory_order_acquire ) )
         [[unlikely]] {
         record( *handle, { Impl::traceArg( args )... } );
      }
      if( facility.enabled( level ) ) [[unlikely]] {
         fmtrace( facility, level, file, function, line, "", format, args... );
      }
   }

 private:
   TESSEL_EXPORT void
   record( Fennet::TraceHandle& handle, std::initializer_list< Impl::TraceArg > arguments ) const;
};

} // namespace Tessel

/// Sets the source file's facility. Use it once, in a namespace that encloses all its traces.
#define TRACE_FACILITY( name )                                                                     \
   namespace {                                                                                     \
   [[maybe_unused]] constinit ::Orl::TraceHandle traceFacility( name, false );                     \
   }                                                                                               \
   static_assert( true )

/// Traces `format`, a literal, with one argument for each {} in it: strings, bools and integers.
/// `level` is a constant from 0 to 31. Each argument is evaluated once, even if nothing is traced.
/// Not for signal handlers.
#define TRACE( level, format, ... )                                                                \
   do {                                                                                            \
      static_assert( 0 <= ( level ) && ( level ) < 32, "a trace level is 0 to 31" );               \
      static_assert(                                                                               \
         ::Tessel::Impl::placeholders( format ) ==                                                 \
            decltype( ::Tessel::Impl::argumentCount( __VA_ARGS__ ) )::value,                       \
         "a trace's format has one {} for each argument, and no other braces but {{ and }}" );     \
      static constinit ::std::atomic< int > traceMsgId = 0;                                        \
      static constexpr ::Tessel::TracePoint tracePoint{                                            \
         __FILE__, __LINE__, __func__, format, level, traceFacility, traceMsgId                    \
      };                                                                                           \
      tracePoint.trace( __VA_ARGS__ );                                                             \
   } while( false )
