// Each parameter of an operation has a name.
#include "Lamp.h"

template<>
struct Tessel::TypeTable< House::Lamp > {
#ifdef MUST_NOT_COMPILE
   static constexpr MemberRow row = operation< &House::Lamp::dim >( "dim", "percent" );
#else
   static constexpr MemberRow row = operation< &House::Lamp::dim >( "dim", "percent", "slowly" );
#endif
};
