// The slab allocator aligns no further than operator new does.
#include <platform/entity/Entity.h>

#include <cstddef>

#ifdef MUST_NOT_COMPILE
constexpr std::size_t alignment = 64;
#else
constexpr std::size_t alignment = alignof( std::max_align_t );
#endif

class alignas( alignment ) Panel : public Tessel::Node {
   TESSEL_ENTITY( Panel )
};

Tessel::Ptr< Panel > panelFactory() {
   return Tessel::ptrIsImpl< Panel >();
}
