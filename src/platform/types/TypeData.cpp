// The registry of module records, and the lookup of types and members.
#include <platform/types/TypeData.h>

#include <platform/value/LockedByForks.h>

#include <algorithm>
#include <mutex>
#include <vector>

namespace Tessel {

namespace {

constinit std::mutex mutex;
[[maybe_unused]] const int mutexIsLockedByForks = Impl::lockedByForks< mutex >();

// Never destroyed: records come and go with their libraries, before and after any other object.
std::vector< const ModuleInspectData* >& modules() {
   static auto& modules = *new std::vector< const ModuleInspectData* >;
   return modules;
}

} // namespace

void ModuleInspectData::loaded() const {
   const std::lock_guard lock( mutex );
   modules().push_back( this );
}

void ModuleInspectData::unloaded() const noexcept {
   const std::lock_guard lock( mutex );
   std::erase( modules(), this );
}

TypeRef findType( std::string_view name ) {
   const std::lock_guard lock( mutex );
   for( const ModuleInspectData* const module : modules() ) {
      const auto type = std::ranges::find( module->types, name, &TypeDesc::name );
      if( type != module->types.end() ) {
         return { module, static_cast< std::uint32_t >( type - module->types.begin() ) };
      }
   }
   return nodeType;
}

TypeRef baseOf( TypeRef type ) {
   return type == nodeType ? nodeType : type.module->typeRefs[type.module->types[type.index].base];
}

Member memberOf( TypeRef type, std::string_view name ) {
   if( type == nodeType ) {
      return {};
   }
   const TypeDesc& desc = type.module->types[type.index];
   const auto members = type.module->members.subspan( desc.firstMember, desc.memberCount );
   const auto member = std::ranges::find( members, name, &MemberDesc::name );
   return member == members.end() ? Member() : Member( type.module->hooks[type.index], *member );
}

Member memberOf( const Node& entity, std::string_view name ) {
   for( TypeRef type = entity.typeData(); type != nodeType; type = baseOf( type ) ) {
      if( const Member member = memberOf( type, name ) ) {
         return member;
      }
   }
   return {};
}

} // namespace Tessel
