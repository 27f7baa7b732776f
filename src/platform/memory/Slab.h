// The slab allocator: the fixed-size blocks that hold every entity.
#pragma once

#include <platform/Export.h>

#include <cstddef>
#include <typeinfo>

namespace Tessel {

/// The alignment of every block, in bytes.
inline constexpr std::size_t slabAlignment = 16;

/// Returns a block of at least size bytes, or null if there is no memory or no object can be that
/// large.
///
/// The caller owns the block until it passes it to slabFree.
/// Thread: any, also while a thread or the process ends, and in the child after a fork, but
/// not in fork handlers that were registered before the library was loaded.
TESSEL_EXPORT void* slabAlloc( std::size_t size ) noexcept;

/// Frees a block that slabAlloc returned on any thread.
///
/// Ends the process if it notices that the block is not live; the message names the type.
/// Thread: as slabAlloc.
TESSEL_EXPORT void slabFree( void* block, const std::type_info& type ) noexcept;

} // namespace Tessel
