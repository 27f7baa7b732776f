// The macro that marks everything that the shared libraries deliberately export.
#pragma once

/// Exports the declaration that follows from its shared library.
#define TESSEL_EXPORT __attribute__( ( visibility( "default" ) ) )
