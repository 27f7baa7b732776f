// An entity is one thing: it takes no other's value.
#include "Lamp.h"

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   *lamp = *House::lampFactory( "hall" );
#endif
}
