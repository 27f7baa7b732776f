// The trace point of the same fields for LTTng-UST, in the form that its macros read several times.
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER trace_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "./LttngProvider.h"

#if !defined( LTTNG_PROVIDER_H ) || defined( LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ )
#define LTTNG_PROVIDER_H

#include <lttng/tracepoint.h>

// clang-format off
LTTNG_UST_TRACEPOINT_EVENT(
   trace_bench, call,
   LTTNG_UST_TP_ARGS( const char*, text, int, flag ),
   LTTNG_UST_TP_FIELDS(
      lttng_ust_field_string( text, text )
      lttng_ust_field_integer( uint8_t, flag, flag ) ) )
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
