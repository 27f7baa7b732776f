// The mark of everything that leaves the shared libraries by intent.
#pragma once

// Exports what it stands before from its shared library.
#define TESSEL_EXPORT __attribute__( ( visibility( "default" ) ) )
