// Preloaded where instructions are counted, so that neither the heap's nor the hash tables' shape
// nor the speed of the other end moves a count.
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
#define HEADER 16U
#define CHUNK ( 64U << 20U )
#define MOMENT 100 // milliseconds

// An allocator of constant cost: one list of free blocks for each power of two, in each thread.
struct Block {
   struct Block* next;
};
static _Thread_local struct Block* freeBlocks[64] __attribute__( ( tls_model( "initial-exec" ) ) );
static _Thread_local char* unused __attribute__( ( tls_model( "initial-exec" ) ) );
static _Thread_local size_t unusedSize __attribute__( ( tls_model( "initial-exec" ) ) );

static void* carve( size_t size ) {
   if( size > unusedSize ) {
      unusedSize = size > CHUNK ? size : CHUNK;
      unused = mmap(
         NULL, unusedSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1,
         0 );
      if( unused == MAP_FAILED ) {
         unusedSize = 0;
         return NULL;
      }
   }
   char* const block = unused;
   unused += size;
   unusedSize -= size;
   return block;
}

// The header keeps the power of two; the contents stay aligned to 16 bytes.
EXPORT void* malloc( size_t size ) {
   const unsigned power =
      size <= HEADER ? 5U : 64U - (unsigned)__builtin_clzl( size + HEADER - 1U );
   struct Block* const reused = freeBlocks[power];
   if( reused ) {
      freeBlocks[power] = reused->next;
      return reused;
   }
   char* const block = carve( (size_t)1 << power );
   if( !block ) {
      return NULL;
   }
   *(uint64_t*)(void*)block = power;
   return block + HEADER;
}

static uint64_t powerOf( const void* contents ) {
   return *(const uint64_t*)(const void*)( (const char*)contents - HEADER );
}

EXPORT void free( void* contents ) {
   if( contents ) {
      struct Block* const block = contents;
      const uint64_t power = powerOf( contents );
      block->next = freeBlocks[power];
      freeBlocks[power] = block;
   }
}

EXPORT void* calloc( size_t count, size_t size ) {
   size_t all = 0;
   if( __builtin_mul_overflow( count, size, &all ) ) {
      return NULL;
   }
   void* const contents = malloc( all );
   return contents ? memset( contents, 0, all ) : NULL;
}

EXPORT size_t malloc_usable_size( void* contents ) {
   return contents ? ( (size_t)1 << powerOf( contents ) ) - HEADER : 0;
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

// Over-aligned contents lie in the second half of a block at the latest, and count as that half.
EXPORT void* aligned_alloc( size_t alignment, size_t size ) {
   char* const block =
      malloc( alignment <= HEADER ? size : 2U * ( size + alignment + 2U * HEADER ) );
   if( !block || alignment <= HEADER ) {
      return block;
   }
   const uintptr_t end = ( (uintptr_t)block + HEADER + alignment - 1U ) & ~( alignment - 1U );
   char* const contents = block + ( end - (uintptr_t)block );
   *(uint64_t*)(void*)( contents - HEADER ) = powerOf( block ) - 1U;
   return contents;
}

EXPORT void* memalign( size_t alignment, size_t size ) {
   return aligned_alloc( alignment, size );
}

EXPORT int posix_memalign( void** contents, size_t alignment, size_t size ) {
   *contents = aligned_alloc( alignment, size );
   return *contents ? 0 : ENOMEM;
}

// Random numbers that are always the same.
EXPORT ssize_t getrandom( void* buffer, size_t size, unsigned flags ) {
   (void)flags;
   memset( buffer, 42, size );
   return (ssize_t)size;
}

// sd-bus looks for a reply at once, and then waits. No reply is ever there at once, not even for a
// client that is slow because it is being counted; what else is about to come always is.
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
