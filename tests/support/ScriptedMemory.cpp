// The replaced allocation functions.
#include <support/ScriptedMemory.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <unordered_set>

namespace SodrelTest {

namespace {

bool active = false;
std::size_t failingNumber = 0;
bool failingForEver = false;
std::size_t allocationCount = 0;
std::size_t failureCount = 0;
std::size_t slabBlockCount = 0;
int notLibraryDepth = 0;

// Takes its memory from where operator new takes it.
template< typename T >
struct Malloc {
   using value_type = T;
   Malloc() = default;
   template< typename U >
   explicit Malloc( const Malloc< U >& ) {}
   T* allocate( std::size_t count ) {
      return static_cast< T* >( std::malloc( count * sizeof( T ) ) );
   }
   void deallocate( T* memory, std::size_t ) { std::free( memory ); }
   friend bool operator==( const Malloc&, const Malloc& ) { return true; }
};

using Blocks =
   std::unordered_set< void*, std::hash< void* >, std::equal_to< void* >, Malloc< void* > >;

// Null until the first LibraryMemory, and never destroyed: memory is freed until the very end.
Blocks* blocks = nullptr;

// Counts an allocation if it is the library's, and tells whether it must fail.
bool mustFail() {
   if( !active || notLibraryDepth > 0 ) {
      return false;
   }
   ++allocationCount;
   const bool failing = failingForEver ? failingNumber != 0 && allocationCount >= failingNumber
                                       : allocationCount == failingNumber;
   failureCount += failing ? 1 : 0;
   return failing;
}

void* allocate( std::size_t size ) noexcept {
   if( mustFail() ) {
      return nullptr;
   }
   void* const block = std::malloc( size == 0 ? 1 : size );
   if( active && notLibraryDepth == 0 ) {
      blocks->insert( block );
   }
   return block;
}

void release( void* block ) noexcept {
   if( blocks ) {
      blocks->erase( block );
   }
   std::free( block );
}

} // namespace

void ( *onFree )( void* memory ) = nullptr;
void ( *onSlabFree )( const std::type_info& type ) = nullptr;

LibraryMemory::LibraryMemory( std::size_t failing, bool forEver ) {
   if( !blocks ) {
      blocks = new( std::malloc( sizeof( Blocks ) ) ) Blocks;
   }
   failingNumber = failing;
   failingForEver = forEver;
   allocationCount = 0;
   failureCount = 0;
   active = true;
}

LibraryMemory::~LibraryMemory() {
   active = false;
}

std::size_t LibraryMemory::failures() const {
   return failureCount;
}

std::size_t libraryBlocks() {
   return blocks ? blocks->size() : 0;
}

std::size_t slabBlocks() {
   return slabBlockCount;
}

NotLibrary::NotLibrary() {
   ++notLibraryDepth;
}

NotLibrary::~NotLibrary() {
   --notLibraryDepth;
}

LibraryAgain::LibraryAgain() : depth_( notLibraryDepth ) {
   notLibraryDepth = 0;
}

LibraryAgain::~LibraryAgain() {
   notLibraryDepth = depth_;
}

} // namespace SodrelTest

void* operator new( std::size_t size ) {
   void* const block = SodrelTest::allocate( size );
   if( !block ) {
      throw std::bad_alloc();
   }
   return block;
}

void* operator new( std::size_t size, const std::nothrow_t& ) noexcept {
   return SodrelTest::allocate( size );
}

void operator delete( void* block ) noexcept {
   SodrelTest::release( block );
}

void operator delete( void* block, std::size_t ) noexcept {
   SodrelTest::release( block );
}

void operator delete( void* block, const std::nothrow_t& ) noexcept {
   SodrelTest::release( block );
}

// The linker gives these names to calls of the functions, and to the originals.
void realFree( void* memory ) asm( "__real_free" );
void wrappedFree( void* memory ) asm( "__wrap_free" );
void* realSlabAlloc( std::size_t size ) asm( "__real_" SLAB_ALLOC );
void* wrappedSlabAlloc( std::size_t size ) asm( "__wrap_" SLAB_ALLOC );
void realSlabFree( void* block, const std::type_info& type ) asm( "__real_" SLAB_FREE );
void wrappedSlabFree( void* block, const std::type_info& type ) asm( "__wrap_" SLAB_FREE );

void wrappedFree( void* memory ) {
   if( memory && SodrelTest::onFree ) {
      SodrelTest::onFree( memory );
   }
   realFree( memory );
}

void* wrappedSlabAlloc( std::size_t size ) {
   if( SodrelTest::mustFail() ) {
      return nullptr;
   }
   const SodrelTest::NotLibrary notLibrary;
   ++SodrelTest::slabBlockCount;
   return realSlabAlloc( size );
}

void wrappedSlabFree( void* block, const std::type_info& type ) {
   if( SodrelTest::onSlabFree ) {
      SodrelTest::onSlabFree( type );
   }
   --SodrelTest::slabBlockCount;
   realSlabFree( block, type );
}
