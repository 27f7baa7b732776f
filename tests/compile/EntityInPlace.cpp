// No memory but the slab allocator's holds an entity.
#include "Lamp.h"

void test() {
   alignas( House::Lamp ) char memory[sizeof( House::Lamp )];
   static_cast< void >( memory );
#ifdef MUST_NOT_COMPILE
   static_cast< void >( new( memory ) House::Lamp( "kitchen" ) );
#endif
}
