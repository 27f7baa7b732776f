// Readable names of C++ types.
#pragma once

#include <platform/Export.h>
#include <platform/value/String.h>

#include <typeinfo>

namespace Tessel {

/// Returns the qualified name as written in the source, for example "Sodrel::Sdbus".
/// Throws std::bad_alloc.
TESSEL_EXPORT String typeName( const std::type_info& type );

} // namespace Tessel
