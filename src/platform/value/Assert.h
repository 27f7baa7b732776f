// Assertions that are checked in every build, with the same message from every compiler.
#pragma once

#include <platform/Export.h>

namespace Tessel::Impl {

/// Writes "FILE:LINE: FUNCTION: Assertion `EXPRESSION' failed." to standard error and aborts.
[[noreturn]] TESSEL_EXPORT void
assertFailed( const char* file, int line, const char* function, const char* expression ) noexcept;

} // namespace Tessel::Impl

/// Ends the process unless `expression` holds. `function` is the function name to print, passed as
/// a literal because compilers spell function names differently.
#define TESSEL_ASSERT( expression, function )                                                      \
   ( ( expression ) ? void( 0 )                                                                    \
                    : ::Tessel::Impl::assertFailed( __FILE__, __LINE__, function, #expression ) )
