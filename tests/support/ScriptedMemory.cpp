// The replaced allocation functions.
#include <support/ScriptedMemory.h>

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace SodrelTest {

namespace {

bool active = false;
bool library = true; // unless there is a NotLibrary
std::size_t failingNumber = 0;
bool failingForEver = false;
std::size_t allocationCount = 0;
std::size_t failureCount = 0;
std::size_t libraryBlockCount = 0;
std::size_t slabBlockCount = 0;

// Whether a block is the library's stands in its last byte, so that pointers to blocks are those
// that malloc returned, as leak checkers expect.
bool& isLibrary( void* block ) {
   return static_cast< bool* >( block )[malloc_usable_size( block ) - 1];
}

// Counts an allocation if it is the library's, and tells whether it must fail.
bool mustFail() {
   if( !active || !library ) {
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
   void* const block = std::malloc( size + 1 );
   if( block ) {
      isLibrary( block ) = active && library;
      libraryBlockCount += active && library ? 1 : 0;
   }
   return block;
}

void release( void* block ) noexcept {
   if( block ) {
      libraryBlockCount -= isLibrary( block ) ? 1 : 0;
      std::free( block );
   }
}

} // namespace

void ( *onFree )( void* memory ) = nullptr;
void ( *onSlabFree )( const std::type_info& type ) = nullptr;

LibraryMemory::LibraryMemory( std::size_t failing, bool forEver ) {
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
   return libraryBlockCount;
}

std::size_t slabBlocks() {
   return slabBlockCount;
}

NotLibrary::NotLibrary( bool again ) : before_( library ) {
   library = again;
}

NotLibrary::~NotLibrary() {
   library = before_;
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
