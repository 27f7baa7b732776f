// That the type data reach a private member opens it to nobody else.
#include "Lamp.h"

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
#ifdef MUST_NOT_COMPILE
   static_cast< void >( lamp->room );
#endif
}
