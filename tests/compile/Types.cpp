// The type data of an entity.
#include "Lamp.h"

#ifdef TYPE_OUT_OF_PLACE
constexpr std::uint32_t place = 1;
#else
constexpr std::uint32_t place = 0;
#endif

template<>
struct Tessel::TypeTable< House::Lamp > {
   using Lamp = House::Lamp;
   static constexpr std::string_view name = "House::Lamp";
   static constexpr TypeRef self{ &lampModule, place };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &House::lampFactory >( "room" );
   static constexpr std::array members{
      attribute< &Lamp::room >( "room" ),
      operation< &Lamp::dim >( "dim", "percent", "slowly" ),
      closed< &Lamp::dim >( "dim", "percent", "slowly" ),
   };

#if defined( PARAMETER_WITHOUT_A_NAME )
   static constexpr MemberRow row = operation< &Lamp::dim >( "dim", "percent" );
#elif defined( NAME_WITHOUT_A_PARAMETER )
   static constexpr MemberRow row = operation< &Lamp::dim >( "dim", "percent", "slowly", "when" );
#elif defined( CLOSED_PARAMETER_WITHOUT_A_NAME )
   static constexpr MemberRow row = closed< &Lamp::dim >( "dim" );
#elif defined( CONSTRUCTOR_PARAMETER_WITHOUT_A_NAME )
   static constexpr CreationRow row = createdBy< &House::lampFactory >();
#elif defined( TOO_MANY_PARAMETERS )
   static constexpr MemberRow row = operation< &Lamp::signal >( "signal", "a", "b", "c", "d", "e" );
#elif defined( ATTRIBUTE_OF_AN_UNKNOWN_TYPE )
   static constexpr MemberRow row = attribute< &Lamp::watts >( "watts" );
#endif
};

template struct Tessel::HideMe< House::Lamp >;

constinit const Tessel::ModuleInspectData lampModule = Tessel::moduleRecord< House::Lamp >();
