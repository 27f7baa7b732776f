// An entity goes with its last use, not by hand.
#include "Lamp.h"

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   delete lamp.get();
#endif
}
