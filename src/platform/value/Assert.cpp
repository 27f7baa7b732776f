// Reports a failed assertion and ends the process.
#include <platform/value/Assert.h>

#include <cstdio>
#include <cstdlib>

namespace Tessel::Impl {

void assertFailed(
   const char* file, int line, const char* function, const char* expression ) noexcept {
   std::fprintf( stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression );
   std::abort();
}

} // namespace Tessel::Impl
