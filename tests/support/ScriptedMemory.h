// The library's allocations, counted and made to fail: operator new, free and the slab allocator's
// functions are replaced by name.
#pragma once

#include <cstddef>
#include <typeinfo>

namespace SodrelTest {

// While one exists, what is allocated on this thread counts as the library's, and may fail.
class LibraryMemory {
 public:
   // The allocation with that number, from 1, fails; with `forEver` all later ones too. 0: none.
   explicit LibraryMemory( std::size_t failing = 0, bool forEver = false );
   ~LibraryMemory();
   LibraryMemory( const LibraryMemory& ) = delete;
   LibraryMemory& operator=( const LibraryMemory& ) = delete;

   // How many allocations have failed.
   [[nodiscard]] std::size_t failures() const;
};

// The blocks of operator new that the library has not given back, whenever they were allocated.
std::size_t libraryBlocks();
// The blocks that the slab allocator has given out and not got back.
std::size_t slabBlocks();

// While one exists, allocations are not the library's: the replaced functions and the tests' own.
// With `again`, they are: what the replaced functions call back.
class NotLibrary {
 public:
   explicit NotLibrary( bool again = false );
   ~NotLibrary();
   NotLibrary( const NotLibrary& ) = delete;
   NotLibrary& operator=( const NotLibrary& ) = delete;

 private:
   const bool before_;
};

// Called with whatever is given to free, before it is gone.
extern void ( *onFree )( void* memory );
// Called with the type of each entity whose block is given back, before it is.
extern void ( *onSlabFree )( const std::type_info& type );

} // namespace SodrelTest
