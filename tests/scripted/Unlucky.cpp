// The replaced factories of monitors.
#include <scripted/ScriptedTest.h>

namespace SodrelTest {

std::deque< bool > unluckyWaits;

namespace {

// Counted as the monitor that it derives from.
template< typename Monitor >
class Unlucky : public Monitor {
 public:
   using Monitor::Monitor;

   bool wait( const Orl::Optional< Tessel::String >& object ) override {
      const UnwatchedMemory unwatched;
      logLine( std::string( "wait( " ) + ( object.hasValue() ? ( *object ).data() : "" ) + " )" );
      const bool outcome = unluckyWaits.front();
      unluckyWaits.pop_front();
      return outcome;
   }
};

} // namespace

// The linker redirects calls of the factories to __wrap_...; __real_... are the originals.
Tessel::Ptr< JobRemovedMonitor > realJobMonitor( sd_bus* bus ) asm( "__real_" JOB_FACTORY );
Tessel::Ptr< JobRemovedMonitor > jobMonitor( sd_bus* bus ) asm( "__wrap_" JOB_FACTORY );
Tessel::Ptr< UnitReloadingMonitor >
realUnitMonitor( sd_bus* bus, const Tessel::String& unitPath ) asm( "__real_" UNIT_FACTORY );
Tessel::Ptr< UnitReloadingMonitor >
unitMonitor( sd_bus* bus, const Tessel::String& unitPath ) asm( "__wrap_" UNIT_FACTORY );

Tessel::Ptr< JobRemovedMonitor > jobMonitor( sd_bus* bus ) {
   if( unluckyWaits.empty() ) {
      return realJobMonitor( bus );
   }
   return Tessel::ptrIsImpl< Unlucky< JobRemovedMonitor > >( bus );
}

Tessel::Ptr< UnitReloadingMonitor > unitMonitor( sd_bus* bus, const Tessel::String& unitPath ) {
   if( unluckyWaits.empty() ) {
      return realUnitMonitor( bus, unitPath );
   }
   return Tessel::ptrIsImpl< Unlucky< UnitReloadingMonitor > >( bus, unitPath );
}

} // namespace SodrelTest
