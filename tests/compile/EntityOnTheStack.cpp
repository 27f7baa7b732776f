// An entity lives in the slab allocator, never on the stack.
#include "Lamp.h"

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   const House::Lamp onTheStack( "kitchen" );
#endif
}
