// An attribute has a type that type data know.
#include "Lamp.h"

template<>
struct Tessel::TypeTable< House::Lamp > {
#ifdef MUST_NOT_COMPILE
   static constexpr MemberRow row = attribute< &House::Lamp::watts >( "watts" );
#else
   static constexpr MemberRow row = attribute< &House::Lamp::room >( "room" );
#endif
};
