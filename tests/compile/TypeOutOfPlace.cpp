// A type's index is its place in its module.
#include "Lamp.h"

template<>
struct Tessel::TypeTable< House::Lamp > {
   static constexpr std::string_view name = "House::Lamp";
#ifdef MUST_NOT_COMPILE
   static constexpr TypeRef self{ &lampModule, 1 };
#else
   static constexpr TypeRef self{ &lampModule, 0 };
#endif
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &House::lampFactory >( "room" );
   static constexpr std::array members{ attribute< &House::Lamp::room >( "room" ) };
};

template struct Tessel::HideMe< House::Lamp >;

constinit const Tessel::ModuleInspectData lampModule = Tessel::moduleRecord< House::Lamp >();
