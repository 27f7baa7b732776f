// Derives a module's record from the member tables of its types at compile time.
#pragma once

#include <platform/types/Members.h>

#include <algorithm>
#include <array>
#include <ios>

namespace Tessel {

// A TypeTable< T > holds, as static constants:
//
//    name       the qualified name
//    self       the module record and T's index in it
//    base       the base's TypeRef
//    creation   createdBy or notCreatable
//    members    a std::array of MemberRow, in the order of the ids
//
// A module defines the TypeTable of each of its types and, after them all, instantiates their
// HideMe: template struct TESSEL_EXPORT Tessel::HideMe< T >;

template< typename T >
int HideMe< T >::inspectOperation(
   void* result, Node* entity, const MemberDesc& member, int request, const void* argument ) {
   constexpr const auto& rows = TypeTable< T >::members;
   return member.id < rows.size()
             ? rows[member.id].access( result, entity, member, request, argument )
             : accessUnknownMember;
}

template< typename T >
void HideMe< T >::genericIfConstructFromCtorArgs( void* result, const void* const* arguments ) {
   if constexpr( TypeTable< T >::creation.construct != nullptr ) {
      TypeTable< T >::creation.construct( result, arguments );
   } else {
      *static_cast< T** >( result ) = nullptr;
   }
}

namespace Impl {

template< typename T >
constexpr TypeHooks hooksOf() {
   const bool creatable = TypeTable< T >::creation.construct != nullptr;
   return {
      &HideMe< T >::inspectOperation,
      creatable ? &HideMe< T >::genericIfConstructFromCtorArgs : nullptr,
   };
}

// All tables of one module.
template< typename... Types >
struct ModuleTables {
   static constexpr std::size_t typeCount = sizeof...( Types );
   static constexpr std::size_t memberCount = ( TypeTable< Types >::members.size() + ... );
   // Upper bound; the totals hold the actual counts.
   static constexpr std::size_t paramSpace = ( typeCount + memberCount ) * maxParams;

   std::array< TypeDesc, typeCount > types;
   std::array< MemberDesc, memberCount > members;
   std::array< ParamDesc, paramSpace > params;
   std::array< std::string_view, typeCount > typeNames;
   std::array< std::string_view, memberCount + paramSpace > memberNames;
   std::array< TypeRef, typeCount + memberCount > typeRefs;
   std::array< TypeHooks, typeCount > hooks{ hooksOf< Types >()... };
   std::uint32_t typeTotal = 0;
   std::uint32_t memberTotal = 0;
   std::uint32_t paramTotal = 0;
   std::size_t nameTotal = 0;
   std::uint32_t typeRefTotal = 0;

   constexpr ModuleTables() {
      ( addType( TypeTable< Types >() ), ... );
      std::sort( typeNames.begin(), typeNames.end() );
      const auto names = std::span( memberNames ).first( nameTotal );
      std::sort( names.begin(), names.end() );
      const auto end = std::unique( names.begin(), names.end() );
      nameTotal = static_cast< std::size_t >( end - names.begin() );
   }

   template< typename Table >
   constexpr void addType( Table ) {
      typeNames[typeTotal] = Table::name;
      types[typeTotal++] = {
         Table::name,
         addTypeRef( Table::base ),
         addParams( Table::creation.params, true ),
         Table::creation.params.count,
         memberTotal,
         static_cast< std::uint32_t >( Table::members.size() ),
      };
      std::uint32_t id = 0;
      for( const MemberRow& row : Table::members ) {
         addMember( row, id++ );
      }
   }

   constexpr void addMember( const MemberRow& row, std::uint32_t id ) {
      if( row.listed ) {
         memberNames[nameTotal++] = row.desc.name;
      }
      MemberDesc& member = members[memberTotal++] = row.desc;
      member.id = id;
      if( member.type == ValueType::entity ) {
         member.typeRef = addTypeRef( row.entityType );
      }
      member.firstParam = addParams( row.params, row.listed );
      member.paramCount = row.params.count;
   }

   constexpr std::uint32_t addParams( const ParamRow& row, bool listed ) {
      const std::uint32_t first = paramTotal;
      for( std::uint32_t i = 0; i < row.count; ++i ) {
         params[paramTotal++] = row.params[i];
         if( listed ) {
            memberNames[nameTotal++] = row.params[i].name;
         }
      }
      return first;
   }

   constexpr std::uint32_t addTypeRef( TypeRef type ) {
      for( std::uint32_t i = 0; i < typeRefTotal; ++i ) {
         if( typeRefs[i] == type ) {
            return i;
         }
      }
      typeRefs[typeRefTotal] = type;
      return typeRefTotal++;
   }
};

template< typename... Types >
inline constexpr ModuleTables< Types... > moduleTables{};

} // namespace Impl

/// Returns the record of a module with these types, in the order of their indices.
template< typename... Types >
constexpr ModuleInspectData moduleRecord() {
   static_assert(
      [] {
         std::uint32_t place = 0;
         return ( ( TypeTable< Types >::self.index == place++ ) && ... );
      }(),
      "the index of each type is its place in the module" );
   const auto& tables = Impl::moduleTables< Types... >;
   return {
      tables.types,
      tables.members,
      std::span( tables.params ).first( tables.paramTotal ),
      tables.typeNames,
      std::span( tables.memberNames ).first( tables.nameTotal ),
      std::span( tables.typeRefs ).first( tables.typeRefTotal ),
      tables.hooks,
      0x00010000 | static_cast< std::uint32_t >( sizeof...( Types ) ),
   };
}

/// Keeps a module's record registered for as long as its library is loaded. The standard streams
/// are initialized first, so code that the module runs at load time may write to them.
class ModuleRegistration {
 public:
   /// Borrows and registers the record.
   explicit ModuleRegistration( const ModuleInspectData& record ) : record_( record ) {
      record_.loaded();
   }
   ModuleRegistration( const ModuleRegistration& ) = delete;
   ModuleRegistration& operator=( const ModuleRegistration& ) = delete;
   ~ModuleRegistration() { record_.unloaded(); }

 private:
   std::ios_base::Init streams_;
   const ModuleInspectData& record_;
};

} // namespace Tessel
