// Preloaded while instructions are counted, so that neither the state of the heap nor random
// numbers nor the speed of the peer affect a count.
#define _GNU_SOURCE
#include <errno.h>
#include <poll.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#define EXPORT __attribute__( ( visibility( "default" ) ) )
#define OF_THREAD static _Thread_local __attribute__( ( tls_model( "initial-exec" ) ) )
#define HEADER 16U // contains the power of two of the block's size
#define CHUNK ( (size_t)64 << 20U )
#define MOMENT 100 // milliseconds

// An allocator of constant cost: per thread, one list of free blocks for each power of two.
struct Block {
   struct Block* next;
};
OF_THREAD struct Block* freeBlocks[64];
OF_THREAD uintptr_t unused;
OF_THREAD uintptr_t unusedEnd;

static uint64_t* powerOf( void* contents ) {
   return (uint64_t*)(void*)( (char*)contents - HEADER );
}

EXPORT void* aligned_alloc( size_t alignment, size_t size ) {
   const unsigned power = size <= HEADER ? 4U : 64U - (unsigned)__builtin_clzl( size - 1U );
   struct Block* const reused = freeBlocks[power];
   if( reused && ( (uintptr_t)reused & ( alignment - 1U ) ) == 0 ) {
      freeBlocks[power] = reused->next;
      return reused;
   }
   const size_t needed = ( (size_t)1 << power ) + HEADER + alignment;
   if( needed > unusedEnd - unused ) {
      const size_t mapped = needed > CHUNK ? needed : CHUNK;
      void* const chunk = mmap(
         NULL, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0 );
      if( chunk == MAP_FAILED ) {
         return NULL;
      }
      unused = (uintptr_t)chunk;
      unusedEnd = unused + mapped;
   }
   void* const contents = (void*)( ( unused + HEADER + alignment - 1U ) & ~( alignment - 1U ) );
   unused = (uintptr_t)contents + ( (size_t)1 << power );
   *powerOf( contents ) = power;
   return contents;
}

EXPORT void* malloc( size_t size ) {
   return aligned_alloc( HEADER, size );
}

EXPORT int posix_memalign( void** contents, size_t alignment, size_t size ) {
   *contents = aligned_alloc( alignment < HEADER ? HEADER : alignment, size );
   return *contents ? 0 : ENOMEM;
}

EXPORT void free( void* contents ) {
   if( contents ) {
      struct Block* const block = contents;
      const uint64_t power = *powerOf( contents );
      block->next = freeBlocks[power];
      freeBlocks[power] = block;
   }
}

EXPORT void* calloc( size_t count, size_t size ) {
   size_t all = 0;
   void* const contents = __builtin_mul_overflow( count, size, &all ) ? NULL : malloc( all );
   return contents ? memset( contents, 0, all ) : NULL;
}

EXPORT size_t malloc_usable_size( void* contents ) {
   return contents ? (size_t)1 << *powerOf( contents ) : 0;
}

EXPORT void* realloc( void* contents, size_t size ) {
   const size_t before = malloc_usable_size( contents );
   if( contents && size <= before ) {
      return contents;
   }
   void* const moved = malloc( size );
   if( contents && moved ) {
      memcpy( moved, contents, before );
      free( contents );
   }
   return moved;
}

// Seeds hash tables, always with the same values.
EXPORT ssize_t getrandom( void* buffer, size_t size, unsigned flags ) {
   (void)flags;
   memset( buffer, 42, size );
   return (ssize_t)size;
}

// sd-bus looks for a reply at once, and then waits. Here, no reply is ever available at once, not
// even to a client that is slow because it is being counted; anything else that is on its way
// always is.
static bool replyAwaited;

EXPORT ssize_t sendmsg( int socket, const struct msghdr* message, int flags ) {
   replyAwaited = true;
   return syscall( SYS_sendmsg, socket, message, flags );
}

EXPORT ssize_t recvmsg( int socket, struct msghdr* message, int flags ) {
   if( ( flags & MSG_DONTWAIT ) != 0 ) {
      if( replyAwaited ) {
         replyAwaited = false;
         errno = EAGAIN;
         return -1;
      }
      struct pollfd readable = { .fd = socket, .events = POLLIN };
      poll( &readable, 1, MOMENT );
   }
   return syscall( SYS_recvmsg, socket, message, flags );
}
