// The instruments and their module.
#include "Instruments.h"

#include <platform/types/Module.h>

#include <stdexcept>
#include <string>
#include <utility>

template<>
struct Tessel::TypeTable< SodrelTest::Instrument > {
   using Instrument = SodrelTest::Instrument;
   static constexpr std::string_view name = "SodrelTest::Instrument";
   static constexpr TypeRef self{ &instrumentsModule, 0 };
   static constexpr TypeRef base = nodeType;
   static constexpr CreationRow creation = notCreatable< Wire* >( "wire" );
   static constexpr std::array members{
      attribute< &Instrument::on >( "on" ),
      attribute< &Instrument::serial >( "serial" ),
      attribute< &Instrument::offset >( "offset" ),
      attribute< &Instrument::period >( "period" ),
      attribute< &Instrument::label >( "label" ),
      attribute< &Instrument::wire >( "wire" ),
      operation< &Instrument::describe >( "describe" ),
      operation< &Instrument::reset >( "reset" ),
      operation< &Instrument::labelIs >( "labelIs", "label" ),
      operation< &Instrument::difference >( "difference", "left", "right" ),
      operation< &Instrument::joined >( "joined", "upper", "number", "text" ),
      operation< &Instrument::allIs >( "allIs", "on", "serial", "period", "wire" ),
      operation< &Instrument::note >( "note", "text" ),
      operation< &Instrument::measure >( "measure" ),
   };
};

template<>
struct Tessel::TypeTable< SodrelTest::Gauge > {
   using Gauge = SodrelTest::Gauge;
   static constexpr std::string_view name = "SodrelTest::Gauge";
   static constexpr TypeRef self{ &instrumentsModule, 1 };
   static constexpr TypeRef base = TypeTable< SodrelTest::Instrument >::self;
   static constexpr CreationRow creation =
      createdBy< &SodrelTest::gaugeFactory >( "unit", "maker" );
   static constexpr std::array members{
      closed< &Gauge::unit >( "unit" ),
      attribute< &Gauge::peer >( "peer" ),
      attribute< &Gauge::reading >( "serial" ),
      operation< &Gauge::peerIs >( "peerIs", "peer" ),
      operation< &Gauge::fail >( "fail" ),
      closed< &Gauge::secretly >( "secretly", "knock" ),
      hook< &Gauge::handleInitialized >( "handleInitialized" ),
      hook< &Gauge::handleDeleted >( "handleDeleted" ),
   };
};

template struct TESSEL_EXPORT Tessel::HideMe< SodrelTest::Instrument >;
template struct TESSEL_EXPORT Tessel::HideMe< SodrelTest::Gauge >;

constinit const Tessel::ModuleInspectData instrumentsModule =
   Tessel::moduleRecord< SodrelTest::Instrument, SodrelTest::Gauge >();

namespace {

const Tessel::ModuleRegistration registration( instrumentsModule );

} // namespace

namespace SodrelTest {

using Tessel::String;

Orl::AllocTrackTypeInfo* Instrument::memAllocationTracker_ = nullptr;
Orl::AllocTrackTypeInfo* Gauge::memAllocationTracker_ = nullptr;

Tessel::TypeRef Instrument::typeData() const {
   return Tessel::TypeTable< Instrument >::self;
}

Tessel::TypeRef Gauge::typeData() const {
   return Tessel::TypeTable< Gauge >::self;
}

Instrument::Instrument( Wire* newWire ) : wire( newWire ) {}

Instrument::~Instrument() {
   nodeFlagSet( Tessel::nodeInitialized, false );
}

String Instrument::describe() const {
   return Tessel::concat(
      on ? "on" : "off", ", serial ", std::to_string( serial ), ", offset ",
      std::to_string( offset ), ", period ", std::to_string( period.nanoseconds() ), ", label ",
      label, wire ? ", wired" : ", not wired" );
}

void Instrument::reset() {
   allIs( false, 0, Tessel::Interval(), nullptr );
   offset = 0;
   label = String();
}

bool Instrument::labelIs( const String& newLabel ) {
   const bool changed = !( label == newLabel );
   label = newLabel;
   return changed;
}

std::int32_t Instrument::difference( std::int32_t left, std::int32_t right ) const {
   return left - right + offset;
}

String Instrument::joined( bool upper, std::uint32_t number, const String& text ) const {
   return Tessel::concat( upper ? "NUMBER " : "number ", std::to_string( number ), text );
}

void Instrument::allIs(
   bool newOn, std::uint32_t newSerial, Tessel::Interval newPeriod, Wire* newWire ) {
   on = newOn;
   serial = newSerial;
   period = newPeriod;
   wire = newWire;
}

String Instrument::note( const Orl::Optional< String >& text ) const noexcept {
   return text.hasValue() ? ( *text ).addLeft( "note: " ) : "no note";
}

Gauge::Gauge( const String& newUnit, const Orl::Optional< String >& newMaker )
   : Instrument( nullptr ), unit( newUnit ) {
   labelIs( newMaker.hasValue() ? ( *newMaker ).addRight( " " ).append( unit ) : unit );
   handleInitialized();
}

Gauge::~Gauge() {
   nodeFlagSet( Tessel::nodeInitialized, false );
   handleDeleted();
}

std::uint32_t Gauge::measure() {
   return reading;
}

Tessel::Ptr< Gauge > Gauge::peerIs( const Tessel::Ptr< Gauge >& newPeer ) {
   return std::exchange( peer, newPeer );
}

Orl::VoidPtr Gauge::fail() {
   throw std::domain_error( "the gauge has failed" );
}

bool Gauge::secretly( const String& knock ) const {
   return knock == unit;
}

void Gauge::handleInitialized() {
   if( unit.empty() ) {
      throw std::invalid_argument( "a gauge has a unit" );
   }
   reading += 100;
}

void Gauge::handleDeleted() {
   reading += 1;
}

Tessel::Ptr< Gauge > gaugeFactory( const String& unit, const Orl::Optional< String >& maker ) {
   return Tessel::ptrIsImpl< Gauge >( unit, maker );
}

} // namespace SodrelTest
