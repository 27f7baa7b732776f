// The replaced slab allocator: it counts its blocks, fails when told to, and logs what is released.
#include <scripted/ScriptedTest.h>

#include <platform/value/Exception.h>
#include <support/Memory.h>

#include <typeinfo>

namespace SodrelTest {

namespace {

std::size_t blocks = 0;

} // namespace

std::size_t slabBlocks() {
   return blocks;
}

// The linker redirects calls of the allocator to __wrap_...; __real_... are the originals.
void* realSlabAlloc( std::size_t size ) asm( "__real_" SLAB_ALLOC );
void* slabAlloc( std::size_t size ) asm( "__wrap_" SLAB_ALLOC );
void realSlabFree( void* block, const std::type_info& type ) asm( "__real_" SLAB_FREE );
void slabFree( void* block, const std::type_info& type ) asm( "__wrap_" SLAB_FREE );

void* slabAlloc( std::size_t size ) {
   if( allocationFails() ) {
      return nullptr;
   }
   const UnwatchedMemory unwatched;
   ++blocks;
   return realSlabAlloc( size );
}

void slabFree( void* block, const std::type_info& type ) {
   {
      const UnwatchedMemory unwatched;
      logLine( std::string( "slabFree( " ) + Tessel::typeName( type ).data() + " )" );
   }
   --blocks;
   realSlabFree( block, type );
}

} // namespace SodrelTest
