// The replaced allocation functions.
#include <support/ScriptedMemory.h>

#include <cstdlib>
#include <new>
#include <unordered_set>

namespace Sodrel::Test {

namespace {

bool active = false;
std::size_t failingNumber = 0;
bool failingForEver = false;
std::size_t allocationCount = 0;
std::size_t failureCount = 0;
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

std::size_t LibraryMemory::allocations() const {
   return allocationCount;
}

std::size_t LibraryMemory::failures() const {
   return failureCount;
}

std::size_t libraryBlocks() {
   return blocks ? blocks->size() : 0;
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

} // namespace Sodrel::Test

void* operator new( std::size_t size ) {
   void* const block = Sodrel::Test::allocate( size );
   if( !block ) {
      throw std::bad_alloc();
   }
   return block;
}

void* operator new( std::size_t size, const std::nothrow_t& ) noexcept {
   return Sodrel::Test::allocate( size );
}

void operator delete( void* block ) noexcept {
   Sodrel::Test::release( block );
}

void operator delete( void* block, std::size_t ) noexcept {
   Sodrel::Test::release( block );
}

void operator delete( void* block, const std::nothrow_t& ) noexcept {
   Sodrel::Test::release( block );
}

// The linker gives these names to calls of free, Tessel::slabAlloc and Tessel::slabFree, and to the
// originals.
extern "C" {

void __real_free( void* memory );
void __wrap_free( void* memory );
void* __real__ZN6Tessel9slabAllocEm( std::size_t size );
void* __wrap__ZN6Tessel9slabAllocEm( std::size_t size );
void __real__ZN6Tessel8slabFreeEPvRKSt9type_info( void* block, const std::type_info& type );
void __wrap__ZN6Tessel8slabFreeEPvRKSt9type_info( void* block, const std::type_info& type );

void __wrap_free( void* memory ) {
   if( memory && Sodrel::Test::onFree ) {
      Sodrel::Test::onFree( memory );
   }
   __real_free( memory );
}

void* __wrap__ZN6Tessel9slabAllocEm( std::size_t size ) {
   return Sodrel::Test::mustFail() ? nullptr : __real__ZN6Tessel9slabAllocEm( size );
}

void __wrap__ZN6Tessel8slabFreeEPvRKSt9type_info( void* block, const std::type_info& type ) {
   if( Sodrel::Test::onSlabFree ) {
      Sodrel::Test::onSlabFree( type );
   }
   __real__ZN6Tessel8slabFreeEPvRKSt9type_info( block, type );
}

} // extern "C"
