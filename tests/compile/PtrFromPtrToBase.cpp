// A counted pointer converts to one to a base, not back.
#include "Lamp.h"

void test() {
   const Tessel::Ptr< Tessel::Node > node = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   const Tessel::Ptr< House::Lamp > lamp = node;
#endif
}
