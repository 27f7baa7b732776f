// A row holds four parameters.
#include "Lamp.h"

template<>
struct Tessel::TypeTable< House::Lamp > {
#ifdef MUST_NOT_COMPILE
   static constexpr MemberRow row =
      operation< &House::Lamp::signal >( "signal", "a", "b", "c", "d", "e" );
#else
   static constexpr MemberRow row = operation< &House::Lamp::dim >( "dim", "percent", "slowly" );
#endif
};
