// What the tests of the unit monitor share.
#pragma once

#include <scripted/MonitorTest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace Sodrel::Test {

inline constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";
inline constexpr const char* timeout = "Sodrel::SdbusSyncException: "
                                       "UnitReloadingMonitor::wait, 600.000000 timeout";
inline constexpr const char* unitFailed =
   "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, unit "
   "/org/freedesktop/systemd1/unit/foo_2eservice failed: Success";
inline constexpr const char* callbackFailed =
   "Sodrel::SdbusSyncException: UnitReloadingMonitor::wait, callback handling failed";

class UnitMonitorTest : public MonitorOf< UnitReloadingMonitor > {
 protected:
   std::string waiting( const Orl::Optional< Tessel::String >& object = std::nullopt ) {
      return thrownBy( [&] { EXPECT_TRUE( monitor->wait( object ) ); } );
   }
   // One pass in which the unit goes through these states.
   void passOf( std::initializer_list< const char* > states ) {
      std::vector< Signal > signals;
      for( const char* const state : states ) {
         signals.push_back( unitBecomes( state ) );
      }
      pass( std::move( signals ) );
   }
   void expectRecord( bool callbackBroke, bool started, bool finished, bool failed ) {
      const auto record = monitor->dataIs();
      EXPECT_EQ( field< bool >( *record, "callbackFailed" ), callbackBroke );
      EXPECT_EQ( field< bool >( *record, "started" ), started );
      EXPECT_EQ( field< bool >( *record, "finished" ), finished );
      EXPECT_EQ( field< bool >( *record, "failed" ), failed );
   }
   // The log of the callback that a signal which cannot be read leaves.
   std::string callbackLog( const Content& changed ) {
      takeLog();
      script.dispatch( bus, propertiesChanged( unitInterface, changed ) );
      return takeLog();
   }
};

} // namespace Sodrel::Test
