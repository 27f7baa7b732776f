// The switch of mutants at run time, included into every source of the mutated copy.
#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Mutation {

// The mutant that is on; 0 for none, negative until the environment has been read.
inline constinit int number = -1;
// One byte for each mutant that code has asked for; null unless they are wanted.
inline constinit unsigned char* reached = nullptr;

// System calls, because tests replace the functions.
inline void readEnvironment() {
   if( const char* const path = std::getenv( "SODREL_MUTANTS_REACHED" ) ) {
      const long fd = syscall( SYS_openat, AT_FDCWD, path, O_RDWR );
      const long size = syscall( SYS_lseek, fd, 0L, SEEK_END );
      reached = reinterpret_cast< unsigned char* >( syscall(
         SYS_mmap, 0L, size, long{ PROT_READ | PROT_WRITE }, long{ MAP_SHARED }, fd, 0L ) );
      syscall( SYS_close, fd );
   }
   const char* const text = std::getenv( "SODREL_MUTANT" );
   number = text ? std::atoi( text ) : 0;
}

inline bool isOn( int mutant ) {
   if( number < 0 ) {
      readEnvironment();
   }
   if( reached ) {
      reached[mutant] = 1;
   }
   return mutant == number;
}

} // namespace Mutation

// Whether this mutant is on; never at compile time.
constexpr bool mutant( int number ) {
   return !__builtin_is_constant_evaluated() && Mutation::isOn( number );
}
