// The name of a type among all type data: a module record and an index in it.
#pragma once

#include <cstdint>

namespace Tessel {

struct ModuleInspectData;

// Borrows the module's record. Valid as long as the module is loaded.
struct TypeRef {
   const ModuleInspectData* module = nullptr; // null for nodeType
   std::uint32_t index = 0;                   // among the module's types

   friend constexpr bool operator==( const TypeRef& left, const TypeRef& right ) = default;
};

// Tessel::Node, the base of all entities, stands in no module's record.
inline constexpr TypeRef nodeType;

// The description of class T, defined where T's module is: see <platform/types/Module.h>.
template< typename T >
struct TypeTable;

} // namespace Tessel
