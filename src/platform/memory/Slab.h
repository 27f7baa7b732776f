// The slab allocator: the fixed-size blocks that hold every entity.
#pragma once

#include <platform/Export.h>

#include <cstddef>
#include <typeinfo>

namespace Tessel {

// Returns a block of at least size bytes, aligned to alignof( std::max_align_t ), or null when
// there is no memory.
//
// Thread: any, also while a thread or the process ends, and in the child after a fork.
TESSEL_EXPORT void* slabAlloc( std::size_t size ) noexcept;

// Gives back a block that slabAlloc returned.
//
// Ends the process when it notices that block is no live block; the text names type.
// Thread: any; the block need not come from the calling thread.
TESSEL_EXPORT void slabFree( void* block, const std::type_info& type ) noexcept;

// What the allocator holds.
struct SlabStats {
   std::size_t slabsMapped; // including a small reserve of empty ones
};

// The figures of the moment. Thread: any.
TESSEL_EXPORT SlabStats slabStats() noexcept;

} // namespace Tessel
