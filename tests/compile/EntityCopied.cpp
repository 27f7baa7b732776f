// An entity is one thing: pointers to it are copied, it is not.
#include "Lamp.h"

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   const auto copy = Tessel::ptrIsImpl< House::Lamp >( *lamp );
#endif
}
