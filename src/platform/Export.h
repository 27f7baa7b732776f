// The mark of everything that the shared libraries export by intent.
#pragma once

/// Exports the declaration that follows from its shared library.
#define TESSEL_EXPORT __attribute__( ( visibility( "default" ) ) )
