// What LTTng-UST's macros make of its trace point.
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "LttngProvider.h"
