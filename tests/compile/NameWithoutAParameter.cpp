// An operation has no more names than parameters.
#include "Lamp.h"

template<>
struct Tessel::TypeTable< House::Lamp > {
#ifdef MUST_NOT_COMPILE
   static constexpr MemberRow row =
      operation< &House::Lamp::dim >( "dim", "percent", "slowly", "when" );
#else
   static constexpr MemberRow row = operation< &House::Lamp::dim >( "dim", "percent", "slowly" );
#endif
};
