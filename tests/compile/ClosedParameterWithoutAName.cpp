// Each parameter of a closed operation has a name too.
#include "Lamp.h"

template<>
struct Tessel::TypeTable< House::Lamp > {
#ifdef MUST_NOT_COMPILE
   static constexpr MemberRow row = closed< &House::Lamp::dim >( "dim" );
#else
   static constexpr MemberRow row = closed< &House::Lamp::dim >( "dim", "percent", "slowly" );
#endif
};
