// Defines a custom entity with the platform layer: counted, tracked, traced and reflected.
//
//    TESSEL_TRACE='Lamp=8' own-entity
#include <platform/entity/Entity.h>
#include <platform/memory/AllocTrack.h>
#include <platform/trace/Trace.h>
#include <platform/types/Module.h>

#include <cstdio>

extern const Tessel::ModuleInspectData lampModule;

namespace House {

TRACE_FACILITY( "Lamp" );

class Lamp : public Tessel::Node {
   TESSEL_ENTITY( Lamp )

 public:
   explicit Lamp( const Tessel::String& lampRoom ) : room( lampRoom ) { handleInitialized(); }

   void dim( std::uint32_t percent ) {
      TRACE( 8, "Dim the lamp of {} to {}", room, percent );
      brightness = percent;
   }
   void handleInitialized() { TRACE( 8, "Initialize the lamp of {}", room ); }
   void handleDeleted() { TRACE( 8, "Deinitialize the lamp of {}", room ); }

 protected:
   ~Lamp() override {
      nodeFlagSet( Tessel::nodeInitialized, false );
      handleDeleted();
   }

 private:
   Tessel::String room;
   std::uint32_t brightness = 100;
};

Tessel::Ptr< Lamp > lampFactory( const Tessel::String& room ) {
   return Tessel::ptrIsImpl< Lamp >( room );
}

} // namespace House

// The table of the class. The position of a row is the member's ID.
template<>
struct Tessel::TypeTable< House::Lamp > {
   using Lamp = House::Lamp;
   static constexpr std::string_view name = "House::Lamp";
   static constexpr TypeRef self{ &lampModule, 0 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = createdBy< &House::lampFactory >( "room" );
   static constexpr std::array members{
      attribute< &Lamp::room >( "room" ),
      attribute< &Lamp::brightness >( "brightness" ),
      operation< &Lamp::dim >( "dim", "percent" ),
      hook< &Lamp::handleInitialized >( "handleInitialized" ),
      hook< &Lamp::handleDeleted >( "handleDeleted" ),
   };
};

template struct Tessel::HideMe< House::Lamp >;

constinit const Tessel::ModuleInspectData lampModule = Tessel::moduleRecord< House::Lamp >();

namespace {

const Tessel::ModuleRegistration registration( lampModule );

} // namespace

namespace House {

Orl::AllocTrackTypeInfo* Lamp::memAllocationTracker_ = nullptr;

Tessel::TypeRef Lamp::typeData() const {
   return Tessel::TypeTable< Lamp >::self;
}

} // namespace House

int main() {
   auto lamp = House::lampFactory( "kitchen" );
   const std::uint32_t percent = 30;
   Tessel::memberOf( *lamp, "dim" ).call( *lamp, nullptr, &percent );
   std::uint32_t brightness = 0;
   Tessel::memberOf( *lamp, "brightness" ).read( *lamp, &brightness );
   std::printf( "brightness %u\n", brightness );
   lamp = nullptr;
   const auto counts = Orl::allocCounts( "House::Lamp" );
   std::printf(
      "lamps: %llu live of %llu\n", static_cast< unsigned long long >( counts->live ),
      static_cast< unsigned long long >( counts->total ) );
}
