// Type data: how a module describes its types and members, and how they are found and used.
#pragma once

#include <platform/Export.h>
#include <platform/entity/Node.h>

#include <cstdint>
#include <span>
#include <string_view>

namespace Tessel {

/// The kinds of values, parameters and results, each with the C++ type that generic access uses.
enum class ValueType : std::uint8_t {
   none,           ///< void
   boolean,        ///< bool
   u32,            ///< std::uint32_t
   s32,            ///< std::int32_t
   duration,       ///< Tessel::Interval: 64-bit nanoseconds
   string,         ///< Tessel::String
   optionalString, ///< as an argument: Tessel::String, or a null pointer for no value
   voidPtr,        ///< Orl::VoidPtr
   entity,         ///< a counted pointer; the type reference beside it names the type
};

/// The kinds of members: fields and functions.
enum class MemberKind : std::uint8_t { attribute, operation };

/// One parameter of an operation or a constructor.
struct ParamDesc {
   std::string_view name;            ///< as in the source
   ValueType type = ValueType::none; ///< never none
};

/// Used in place of a type reference's index if a value is not an entity.
inline constexpr std::uint32_t noTypeRef = 0xffffffff;

/// One member of a type.
struct MemberDesc {
   std::string_view name;                   ///< as in the source
   std::uint32_t id = 0;                    ///< counts from 0 in each type
   MemberKind kind = MemberKind::attribute; ///< determines the requests it accepts
   ValueType type = ValueType::none;        ///< of the attribute or the result
   std::uint32_t typeRef = noTypeRef; ///< of an entity: index among the module's type references
   std::uint32_t firstParam = 0;      ///< index among the module's parameters
   std::uint32_t paramCount = 0;      ///< of an operation
};

/// One entity type of a module.
struct TypeDesc {
   std::string_view name;         ///< qualified
   std::uint32_t base = 0;        ///< index among the module's type references
   std::uint32_t firstParam = 0;  ///< the constructor's, index among the module's parameters
   std::uint32_t paramCount = 0;  ///< the constructor's
   std::uint32_t firstMember = 0; ///< index among the module's members
   std::uint32_t memberCount = 0; ///< without the base's members
};

/// The requests of generic access.
inline constexpr int requestRead = 0;
inline constexpr int requestWrite = 1;
inline constexpr int requestCall = 10;

/// The results of generic access.
inline constexpr int accessDone = 0;
inline constexpr int accessRefused = 1;
inline constexpr int accessUnknownMember = 2;

/// Reads, writes or calls a member; see HideMe.
using AccessFunction = int ( * )(
   void* result, Node* entity, const MemberDesc& member, int request, const void* argument );
/// Constructs an entity; see HideMe.
using ConstructFunction = void ( * )( void* result, const void* const* arguments );

/// Generic access to one type: the operations of its HideMe.
struct TypeHooks {
   AccessFunction inspectOperation;         ///< as in HideMe
   ConstructFunction constructFromCtorArgs; ///< null for a type that can't be created
};

/// Generic access to the entities of class T through the rows of its table. Defined by T's module.
template< typename T >
struct HideMe {
   /// Returns accessDone, accessRefused or accessUnknownMember; throws what the member throws.
   ///
   /// `argument` is the address of the value to write or of the only argument; with several
   /// arguments, an array of such addresses in parameter order; null if there is none. `result` is
   /// the address that receives the value read or returned; null discards a call's result.
   static int inspectOperation(
      void* result, Node* entity, const MemberDesc& member, int request, const void* argument );
   /// Stores at `result` a T* that owns the new entity's only use, or null if T can't be created.
   /// `arguments` are the addresses of the constructor's arguments.
   static void genericIfConstructFromCtorArgs( void* result, const void* const* arguments );
};

/// The record of one source module, which describes all its types. Static data only.
struct TESSEL_EXPORT ModuleInspectData {
   std::span< const TypeDesc > types;             ///< by index
   std::span< const MemberDesc > members;         ///< in the order of the types
   std::span< const ParamDesc > params;           ///< grouped by member or constructor
   std::span< const std::string_view > typeNames; ///< sorted
   /// Sorted: attributes, constructor parameters, and the listed operations with their parameters.
   std::span< const std::string_view > memberNames;
   std::span< const TypeRef > typeRefs; ///< bases and types of entity values
   std::span< const TypeHooks > hooks;  ///< by type index
   std::uint32_t word = 0;              ///< low half: the number of types; high half: 1

   /// Makes the record's types visible to findType. Throws std::bad_alloc. Thread: any.
   void loaded() const;
   /// Hides the record's types from findType. Thread: any.
   void unloaded() const noexcept;
};

/// A member and the generic access to it. Empty if nothing was found.
///
/// The operations return accessDone, accessRefused or accessUnknownMember, and throw what the
/// member throws.
class Member {
 public:
   Member() = default;
   /// Borrows both, as memberOf does.
   Member( const TypeHooks& hooks, const MemberDesc& desc ) : hooks_( &hooks ), desc_( &desc ) {}

   /// Returns whether there is a member. Nothing else may be called on an empty one.
   explicit operator bool() const { return desc_ != nullptr; }
   /// Returns the member's description, borrowed, valid as long as the module is loaded.
   [[nodiscard]] const MemberDesc& desc() const { return *desc_; }

   /// Reads an attribute into the value of its type at `result`.
   int read( Node& entity, void* result ) const {
      return hooks_->inspectOperation( result, &entity, *desc_, requestRead, nullptr );
   }
   /// Writes the value of its type at `value` to an attribute.
   int write( Node& entity, const void* value ) const {
      return hooks_->inspectOperation( nullptr, &entity, *desc_, requestWrite, value );
   }
   /// Calls an operation; `result` and `argument` as for HideMe::inspectOperation.
   int call( Node& entity, void* result, const void* argument ) const {
      return hooks_->inspectOperation( result, &entity, *desc_, requestCall, argument );
   }

 private:
   const TypeHooks* hooks_ = nullptr;
   const MemberDesc* desc_ = nullptr;
};

/// Returns the member with that name that `type` itself declares; empty if it declares none.
TESSEL_EXPORT Member memberOf( TypeRef type, std::string_view name );
/// Returns the member with that id that `type` itself declares; empty if it declares none.
inline Member memberOf( TypeRef type, std::uint32_t id ) {
   if( !type.module || id >= type.module->types[type.index].memberCount ) {
      return {};
   }
   const TypeDesc& desc = type.module->types[type.index];
   return { type.module->hooks[type.index], type.module->members[desc.firstMember + id] };
}
/// Returns the member with that name from the entity's type, else from the nearest base with one.
TESSEL_EXPORT Member memberOf( const Node& entity, std::string_view name );

/// Returns the base of a type; nodeType at the root.
TESSEL_EXPORT TypeRef baseOf( TypeRef type );

/// Returns the type with that qualified name from any loaded module, valid as long as its module is
/// loaded; nodeType if no module has it. Thread: any.
TESSEL_EXPORT TypeRef findType( std::string_view name );

} // namespace Tessel
