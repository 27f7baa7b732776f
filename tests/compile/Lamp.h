// An entity as it should be, for the cases that misuse one.
#pragma once

#include <platform/entity/Entity.h>
#include <platform/types/Module.h>
#include <platform/value/String.h>

#include <cstdint>

extern const Tessel::ModuleInspectData lampModule;

namespace House {

class Lamp : public Tessel::Node {
   TESSEL_ENTITY( Lamp )

 public:
   explicit Lamp( const Tessel::String& lampRoom ) : room( lampRoom ) {}

   void dim( std::uint32_t percent, bool slowly );
   void signal( bool a, bool b, bool c, bool d, bool e );

 protected:
   ~Lamp() override { nodeFlagSet( Tessel::nodeInitialized, false ); }

 private:
   Tessel::String room;
   double watts = 0;
};

inline Tessel::Ptr< Lamp > lampFactory( const Tessel::String& room ) {
   return Tessel::ptrIsImpl< Lamp >( room );
}

} // namespace House
