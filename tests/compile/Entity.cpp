// Entities and the pointers to them.
#include "Lamp.h"

#include <cstddef>

#ifdef ALIGNED_TOO_STRICTLY
constexpr std::size_t alignment = 64;
#else
constexpr std::size_t alignment = 16;
#endif

class alignas( alignment ) Panel : public Tessel::Node {
   TESSEL_ENTITY( Panel )
};

Tessel::Ptr< Panel > panelFactory() {
   return Tessel::ptrIsImpl< Panel >();
}

void test() {
   const auto lamp = House::lampFactory( "kitchen" );
   const Tessel::Ptr< Tessel::Node > node = lamp;
   alignas( House::Lamp ) char memory[sizeof( House::Lamp )];
   static_cast< void >( memory );

#if defined( ON_THE_STACK )
   const House::Lamp onTheStack( "kitchen" );
#elif defined( BY_PLAIN_NEW )
   static_cast< void >( new House::Lamp( "kitchen" ) );
#elif defined( IN_PLACE )
   static_cast< void >( new( memory ) House::Lamp( "kitchen" ) );
#elif defined( DELETED_BY_HAND )
   delete lamp.get();
#elif defined( COPIED )
   const auto copy = Tessel::ptrIsImpl< House::Lamp >( *lamp );
#elif defined( ASSIGNED )
   *lamp = *House::lampFactory( "hall" );
#elif defined( PRIVATE_MEMBER )
   // Access by the type data does not open it to anything else.
   static_cast< void >( lamp->room );
#elif defined( PTR_FROM_RAW_POINTER )
   const Tessel::Ptr< House::Lamp > second = lamp.get();
#elif defined( PTR_FROM_PTR_TO_BASE )
   const Tessel::Ptr< House::Lamp > second = node;
#endif
}
