// Only ptrIsImpl asks for the memory of an entity.
#include "Lamp.h"

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   static_cast< void >( new House::Lamp( "kitchen" ) );
#endif
}
