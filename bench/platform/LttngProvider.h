// The trace point for LTTng-UST, whose macros include this file several times.
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER platform_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "./LttngProvider.h"

#if !defined( LTTNG_PROVIDER_H ) || defined( LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ )
#define LTTNG_PROVIDER_H

#include <lttng/tracepoint.h>

// clang-format off
LTTNG_UST_TRACEPOINT_EVENT(
   platform_bench, call,
   LTTNG_UST_TP_ARGS( const char*, text, int, flag ),
   LTTNG_UST_TP_FIELDS(
      lttng_ust_field_string( text, text )
      lttng_ust_field_integer( uint8_t, flag, flag ) ) )
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
