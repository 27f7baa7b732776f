// The slots of an object's virtual operations in its virtual table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace SodrelTest {

// The number of a virtual operation's slot, counted from 0. The pointer holds its offset in the
// table, plus one on most architectures.
template< typename Operation >
std::size_t slotOf( Operation operation ) {
   static_assert( sizeof( operation ) == 2 * sizeof( std::uintptr_t ) );
   std::uintptr_t offset = 0;
   std::memcpy( &offset, &operation, sizeof( offset ) );
   return offset / sizeof( void* );
}

// The entry in a slot of an object's virtual table, as a function that takes the object.
template< typename Result, typename Object >
auto inSlot( Object& object, std::size_t slot ) {
   using Function = Result ( * )( Object* );
   Function* table = nullptr;
   std::memcpy( &table, static_cast< const void* >( &object ), sizeof( table ) );
   return table[slot];
}

} // namespace SodrelTest
