// The rows of a class's member table: `attribute`, `operation`, `hook` and `closed`, with values,
// parameters and results deduced from the member pointer.
#pragma once

#include <platform/entity/Ptr.h>
#include <platform/types/TypeData.h>
#include <platform/value/Interval.h>
#include <platform/value/Optional.h>
#include <platform/value/String.h>
#include <platform/value/VoidPtr.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Tessel {

namespace Impl {

// How a C++ type appears in type data: its value type, and the type that generic access sees.
template< typename T >
struct Reflected;

template< ValueType type, typename T >
struct ReflectedAs {
   static constexpr ValueType valueType = type;
   using Seen = T;
   static constexpr TypeRef typeRef() { return nodeType; }
};

template<>
struct Reflected< void > : ReflectedAs< ValueType::none, void > {};
template<>
struct Reflected< bool > : ReflectedAs< ValueType::boolean, bool > {};
template<>
struct Reflected< std::uint32_t > : ReflectedAs< ValueType::u32, std::uint32_t > {};
template<>
struct Reflected< std::int32_t > : ReflectedAs< ValueType::s32, std::int32_t > {};
template<>
struct Reflected< Interval > : ReflectedAs< ValueType::duration, Interval > {};
template<>
struct Reflected< String > : ReflectedAs< ValueType::string, String > {};
template<>
struct Reflected< Orl::Optional< String > > : ReflectedAs< ValueType::optionalString, String > {};
template< typename T >
struct Reflected< T* > : ReflectedAs< ValueType::voidPtr, Orl::VoidPtr > {};
template< typename T >
struct Reflected< Ptr< T > > : ReflectedAs< ValueType::entity, Ptr< T > > {
   static constexpr TypeRef typeRef() { return TypeTable< T >::self; }
};

template< typename T >
inline constexpr bool mayBeNull = std::is_same_v< T, Orl::Optional< String > >;

// Converts an argument of generic access to the C++ parameter type. If the types are the same,
// returns the passed value itself.
template< typename T >
decltype( auto ) argumentFrom( const void* value ) {
   using Seen = typename Reflected< T >::Seen;
   if constexpr( mayBeNull< T > ) {
      return value ? T( *static_cast< const Seen* >( value ) ) : T();
   } else if constexpr( std::is_pointer_v< T > ) {
      return static_cast< T >( *static_cast< const Seen* >( value ) );
   } else {
      return *static_cast< const Seen* >( value );
   }
}

// The addresses of all arguments: that of a single argument, or those in the array.
template< std::size_t count >
std::array< const void*, count > argumentAddresses( const void* argument ) {
   std::array< const void*, count > addresses{};
   if constexpr( count == 1 ) {
      addresses[0] = argument;
   } else if( argument ) {
      for( std::size_t i = 0; i < count; ++i ) {
         addresses[i] = static_cast< const void* const* >( argument )[i];
      }
   }
   return addresses;
}

inline int refuseAccess( void*, Node*, const MemberDesc&, int, const void* ) {
   return accessRefused;
}

template< auto member, typename Class, typename Value >
int accessAttribute(
   void* result, Node* entity, const MemberDesc&, int request, const void* argument ) {
   Value& value = static_cast< Class* >( entity )->*member;
   if( request == requestRead && result ) {
      *static_cast< typename Reflected< Value >::Seen* >( result ) = value;
      return accessDone;
   }
   if( request == requestWrite && argument ) {
      value = argumentFrom< Value >( argument );
      return accessDone;
   }
   return accessRefused;
}

// GCOVR_EXCL_BR_START: gcovr would require every operation to take every branch
template< auto member, typename Class, typename Result, typename... Args >
int callOperation(
   void* result, Node* entity, const MemberDesc&, int request, const void* argument ) {
   // Checked first, because other requests do not pass an array of addresses.
   if( request != requestCall ) {
      return accessRefused;
   }
   const auto addresses = argumentAddresses< sizeof...( Args ) >( argument );
   return [&]< std::size_t... i >( std::index_sequence< i... > ) {
      if( !( (addresses[i] || mayBeNull< Args >)&&... ) ) {
         return accessRefused;
      }
      Class& object = *static_cast< Class* >( entity );
      if constexpr( std::is_void_v< Result > ) {
         ( object.*member )( argumentFrom< Args >( addresses[i] )... );
      } else {
         Result value = ( object.*member )( argumentFrom< Args >( addresses[i] )... );
         if( result ) {
            *static_cast< typename Reflected< Result >::Seen* >( result ) = std::move( value );
         }
      }
      return accessDone;
   }
   ( std::index_sequence_for< Args... >() );
}
// GCOVR_EXCL_BR_STOP

} // namespace Impl

/// The maximum number of parameters of an operation or a constructor.
inline constexpr std::size_t maxParams = 4;

/// The parameters of an operation or a constructor.
struct ParamRow {
   /// The first `count` are the parameters.
   std::array< ParamDesc, maxParams > params;
   std::uint32_t count = 0; ///< at most maxParams
};

/// Returns parameters of these types with these names.
template< typename... Args, typename... Names >
constexpr ParamRow paramRow( Names... names ) {
   static_assert( sizeof...( Args ) == sizeof...( Names ), "one name for each parameter" );
   static_assert( sizeof...( Args ) <= maxParams );
   return {
      { ParamDesc{ names, Impl::Reflected< std::remove_cvref_t< Args > >::valueType }... },
      sizeof...( Args ),
   };
}

/// One row of a member table; its position in the table is the member's id.
struct MemberRow {
   MemberDesc desc;    ///< without its id and its places in the module's tables
   TypeRef entityType; ///< of a value that is an entity
   ParamRow params;    ///< of an operation
   AccessFunction access = &Impl::refuseAccess; ///< reads, writes or calls the member
   bool listed = true;                          ///< among the module's member names
};

namespace Impl {

template< auto member, typename Class, typename Value >
requires std::is_object_v< Value >
constexpr MemberRow rowOf( Value Class::*, std::string_view name ) {
   return {
      { name, 0, MemberKind::attribute, Reflected< Value >::valueType },
      Reflected< Value >::typeRef(),
      {},
      &accessAttribute< member, Class, Value >,
   };
}

template< auto member, typename Class, typename Result, typename... Args, typename... Names >
constexpr MemberRow
rowOf( Result ( Class::* )( Args... ), std::string_view name, Names... params ) {
   return {
      { name, 0, MemberKind::operation, Reflected< Result >::valueType },
      Reflected< Result >::typeRef(),
      paramRow< Args... >( params... ),
      &callOperation< member, Class, Result, std::remove_cvref_t< Args >... >,
   };
}

template< auto member, typename Class, typename Result, typename... Args, typename... Names >
constexpr MemberRow
rowOf( Result ( Class::* )( Args... ) const, std::string_view name, Names... params ) {
   return rowOf< member >(
      static_cast< Result ( Class::* )( Args... ) >( nullptr ), name, params... );
}

} // namespace Impl

/// Describes a field that can be read and written.
template< auto member >
constexpr MemberRow attribute( std::string_view name ) {
   return Impl::rowOf< member >( member, name );
}

/// Describes an operation that can be called; takes one name for each of its parameters.
template< auto member, typename... Names >
constexpr MemberRow operation( std::string_view name, Names... params ) {
   return Impl::rowOf< member >( member, name, params... );
}

/// Describes an operation that the runtime calls by its id: callable, but not listed by name.
template< auto member >
constexpr MemberRow hook( std::string_view name ) {
   MemberRow row = operation< member >( name );
   row.listed = false;
   return row;
}

/// Describes a member that refuses every access. Only fields are listed by name.
template< auto member, typename... Names >
constexpr MemberRow closed( std::string_view name, Names... params ) {
   MemberRow row = Impl::rowOf< member >( member, name, params... );
   row.listed = row.desc.kind == MemberKind::attribute;
   row.access = &Impl::refuseAccess;
   return row;
}

/// The constructor of a type, and how generic construction creates it.
struct CreationRow {
   ParamRow params;                       ///< of the constructor
   ConstructFunction construct = nullptr; ///< null for a type that can't be created
};

/// Describes a type that generic construction cannot create.
template< typename... Args, typename... Names >
constexpr CreationRow notCreatable( Names... params ) {
   return { paramRow< Args... >( params... ), nullptr };
}

namespace Impl {

template< auto factory, typename T, typename... Args >
void construct( void* result, [[maybe_unused]] const void* const* arguments ) {
   [&]< std::size_t... i >( std::index_sequence< i... > ) {
      *static_cast< T** >( result ) =
         factory( argumentFrom< std::remove_cvref_t< Args > >( arguments[i] )... ).release();
   }
   ( std::index_sequence_for< Args... >() );
}

template< auto factory, typename T, typename... Args, typename... Names >
constexpr CreationRow creationRow( Ptr< T > ( * )( Args... ), Names... params ) {
   return { paramRow< Args... >( params... ), &construct< factory, T, Args... > };
}

} // namespace Impl

/// Describes a type whose entities `factory` creates; takes one name for each of its parameters.
template< auto factory, typename... Names >
constexpr CreationRow createdBy( Names... params ) {
   return Impl::creationRow< factory >( factory, params... );
}

} // namespace Tessel
