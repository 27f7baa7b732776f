// Entities for tests: a base and a class that can be created, with every kind of member.
#pragma once

#include <platform/entity/Entity.h>
#include <platform/types/TypeData.h>
#include <platform/value/Interval.h>
#include <platform/value/Optional.h>
#include <platform/value/String.h>
#include <platform/value/VoidPtr.h>

#include <cstdint>

extern const Tessel::ModuleInspectData instrumentsModule;

// What an instrument is wired to; never defined.
struct Wire;

namespace SodrelTest {

class Instrument : public Tessel::Node {
   TESSEL_ENTITY( Instrument )

 public:
   // All attributes, for comparison with what generic access returns.
   [[nodiscard]] Tessel::String describe() const;
   // 0 to 4 parameters, by reference and by value, const and not.
   void reset();
   bool labelIs( const Tessel::String& newLabel );
   [[nodiscard]] std::int32_t difference( std::int32_t left, std::int32_t right ) const;
   Tessel::String joined( bool upper, std::uint32_t number, const Tessel::String& text ) const;
   void allIs( bool newOn, std::uint32_t newSerial, Tessel::Interval newPeriod, Wire* newWire );
   Tessel::String note( const Orl::Optional< Tessel::String >& text ) const noexcept;
   virtual std::uint32_t measure() = 0;

 protected:
   explicit Instrument( Wire* newWire );
   ~Instrument() override;

 private:
   bool on = false;
   std::uint32_t serial = 0;
   std::int32_t offset = 0;
   Tessel::Interval period;
   Tessel::String label;
   Wire* wire;
};

class Gauge : public Instrument {
   TESSEL_ENTITY( Gauge )

 public:
   Gauge( const Tessel::String& newUnit, const Orl::Optional< Tessel::String >& newMaker );

   std::uint32_t measure() override;
   // Returns the previous peer.
   Tessel::Ptr< Gauge > peerIs( const Tessel::Ptr< Gauge >& newPeer );
   Orl::VoidPtr fail();
   [[nodiscard]] bool secretly( const Tessel::String& knock ) const;

   void handleInitialized();
   void handleDeleted();

 protected:
   ~Gauge() override;

 private:
   Tessel::String unit;
   Tessel::Ptr< Gauge > peer;
   std::uint32_t reading = 0;
};

// Throws std::invalid_argument if the unit is empty.
Tessel::Ptr< Gauge >
gaugeFactory( const Tessel::String& unit, const Orl::Optional< Tessel::String >& maker );

} // namespace SodrelTest
