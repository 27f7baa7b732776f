// Which clock the records' ticks come from.
#include <platform/trace/Ticks.h>

#if defined( __x86_64__ )
#include <cpuid.h>
#endif

namespace Fennet::Impl {

bool tscIsInvariant() {
#if defined( __x86_64__ )
   constexpr unsigned powerManagement = 0x8000'0007;
   constexpr unsigned invariantTsc = 1 << 8;
   unsigned eax = 0;
   unsigned ebx = 0;
   unsigned ecx = 0;
   unsigned edx = 0;
   // GCOVR_EXCL_START: a machine has it or not
   return __get_cpuid( powerManagement, &eax, &ebx, &ecx, &edx ) && ( edx & invariantTsc );
   // GCOVR_EXCL_STOP
#else
   return false;
#endif
}

} // namespace Fennet::Impl
