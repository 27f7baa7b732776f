// Each parameter of a factory has a name.
#include "Lamp.h"

template<>
struct Tessel::TypeTable< House::Lamp > {
#ifdef MUST_NOT_COMPILE
   static constexpr CreationRow creation = createdBy< &House::lampFactory >();
#else
   static constexpr CreationRow creation = createdBy< &House::lampFactory >( "room" );
#endif
};
