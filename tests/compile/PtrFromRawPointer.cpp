// A counted pointer is made of a raw one only where that is said.
#include "Lamp.h"

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   const Tessel::Ptr< House::Lamp > second = lamp.get();
#endif
}
