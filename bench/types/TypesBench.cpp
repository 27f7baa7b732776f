// Generic access next to a bare table of functions.
#include <platform/entity/Entity.h>
#include <platform/types/Module.h>

#include "../Iterations.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>

extern const Tessel::ModuleInspectData tankModule;

namespace {

using Tessel::String;

class Tank : public Tessel::Node {
   TESSEL_ENTITY( Tank )

 public:
   [[gnu::noinline]] std::uint32_t filled( std::uint32_t litres ) { return level += litres; }
   [[gnu::noinline]] bool isNamed( const String& other ) const { return name == other; }

   // The bare functions reach what generic access reaches.
   std::uint32_t level = 0;
   String name = "the tank in the cellar, next to the old boiler";
};

} // namespace

template<>
struct Tessel::TypeTable< Tank > {
   static constexpr std::string_view name = "Tank";
   static constexpr TypeRef self{ &tankModule, 0 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &ptrIsImpl< Tank > >();
   static constexpr std::array members{
      attribute< &Tank::level >( "level" ),
      attribute< &Tank::name >( "name" ),
      operation< &Tank::filled >( "filled", "litres" ),
      operation< &Tank::isNamed >( "isNamed", "other" ),
   };
};

template struct Tessel::HideMe< Tank >;

constinit const Tessel::ModuleInspectData tankModule = Tessel::moduleRecord< Tank >();

namespace {

Orl::AllocTrackTypeInfo* Tank::memAllocationTracker_ = nullptr;

Tessel::TypeRef Tank::typeData() const {
   return Tessel::TypeTable< Tank >::self;
}

// What one would write by hand: a function per access, in a table by id.
using Bare = void ( * )( Tank& tank, void* result, const void* argument );

void readLevel( Tank& tank, void* result, const void* ) {
   *static_cast< std::uint32_t* >( result ) = tank.level;
}
void writeLevel( Tank& tank, void*, const void* argument ) {
   tank.level = *static_cast< const std::uint32_t* >( argument );
}
void readName( Tank& tank, void* result, const void* ) {
   *static_cast< String* >( result ) = tank.name;
}
void writeName( Tank& tank, void*, const void* argument ) {
   tank.name = *static_cast< const String* >( argument );
}
void callFilled( Tank& tank, void* result, const void* argument ) {
   *static_cast< std::uint32_t* >( result ) =
      tank.filled( *static_cast< const std::uint32_t* >( argument ) );
}
void callIsNamed( Tank& tank, void* result, const void* argument ) {
   *static_cast< bool* >( result ) = tank.isNamed( *static_cast< const String* >( argument ) );
}

constexpr std::array< Bare, 6 > bareTable{ &readLevel, &writeLevel, &readName,
                                           &writeName, &callFilled, &callIsNamed };

enum class Access : std::uint8_t { read, write, call };

// One access by its place in the bare table.
template< std::size_t place, typename Result, typename Argument >
void bare( benchmark::State& state ) {
   const auto tank = Tessel::ptrIsImpl< Tank >();
   Result result{};
   const Argument argument{};
   Tank* entity = tank.get();
   std::size_t id = place;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( entity );
      benchmark::DoNotOptimize( id );
      bareTable[id]( *entity, &result, &argument );
      benchmark::ClobberMemory();
   }
}

// The same access through the type data of an entity of unknown type, by the member's id.
template< Access access, std::uint32_t memberId, typename Result, typename Argument >
void reflected( benchmark::State& state ) {
   const auto tank = Tessel::ptrIsImpl< Tank >();
   Result result{};
   const Argument argument{};
   Tessel::Node* entity = tank.get();
   std::uint32_t id = memberId;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( entity );
      benchmark::DoNotOptimize( id );
      const Tessel::Member member = Tessel::memberOf( entity->typeData(), id );
      if constexpr( access == Access::read ) {
         member.read( *entity, &result );
      } else if constexpr( access == Access::write ) {
         member.write( *entity, &argument );
      } else {
         member.call( *entity, &result, &argument );
      }
      benchmark::ClobberMemory();
   }
}

// A text of the length of the tank's name, so that what is compared is the access.
struct Name : String {
   Name() : String( "the tank in the cellar, next to the old kettle" ) {}
};

BENCHMARK( bare< 0, std::uint32_t, std::uint32_t > )
   ->Name( "readNumber/bare" )
   ->Apply( Bench::iterations );
BENCHMARK( reflected< Access::read, 0, std::uint32_t, std::uint32_t > )
   ->Name( "readNumber/reflected" )
   ->Apply( Bench::iterations );
BENCHMARK( bare< 1, std::uint32_t, std::uint32_t > )
   ->Name( "writeNumber/bare" )
   ->Apply( Bench::iterations );
BENCHMARK( reflected< Access::write, 0, std::uint32_t, std::uint32_t > )
   ->Name( "writeNumber/reflected" )
   ->Apply( Bench::iterations );
BENCHMARK( bare< 2, String, Name > )->Name( "readString/bare" )->Apply( Bench::iterations );
BENCHMARK( reflected< Access::read, 1, String, Name > )
   ->Name( "readString/reflected" )
   ->Apply( Bench::iterations );
BENCHMARK( bare< 3, String, Name > )->Name( "writeString/bare" )->Apply( Bench::iterations );
BENCHMARK( reflected< Access::write, 1, String, Name > )
   ->Name( "writeString/reflected" )
   ->Apply( Bench::iterations );
BENCHMARK( bare< 4, std::uint32_t, std::uint32_t > )
   ->Name( "callWithNumber/bare" )
   ->Apply( Bench::iterations );
BENCHMARK( reflected< Access::call, 2, std::uint32_t, std::uint32_t > )
   ->Name( "callWithNumber/reflected" )
   ->Apply( Bench::iterations );
BENCHMARK( bare< 5, bool, Name > )->Name( "callWithString/bare" )->Apply( Bench::iterations );
BENCHMARK( reflected< Access::call, 3, bool, Name > )
   ->Name( "callWithString/reflected" )
   ->Apply( Bench::iterations );

} // namespace
