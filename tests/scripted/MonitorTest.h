// What the tests of the monitors share: a connection that nobody else uses, and ways to wait.
#pragma once

#include <Sodrel/SignalMonitor.h>

#include <scripted/ScriptedTest.h>
#include <scripted/Signals.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace Sodrel::Test {

// Owns bus1.
class MonitorTest : public ScriptedTest {
 protected:
   void TearDown() override {
      script.released( bus );
      ScriptedTest::TearDown();
   }

   // Reads or writes a field through generic access.
   template< typename T >
   static T field( Tessel::Node& entity, const char* name ) {
      T value{};
      EXPECT_EQ( Tessel::memberOf( entity, name ).read( entity, &value ), 0 ) << name;
      return value;
   }
   template< typename T >
   static void fieldIs( Tessel::Node& entity, const char* name, const T& value ) {
      EXPECT_EQ( Tessel::memberOf( entity, name ).write( entity, &value ), 0 ) << name;
   }

   // One pass of the wait loop dispatches these signals.
   void pass( std::vector< Signal > signals ) {
      script.next( "sd_bus_process", dispatches( std::move( signals ) ) );
      script.next( "sd_bus_process", {} );
   }

   sd_bus* const bus = script.newBus();
};

// With a monitor on bus1, of foo.service where it is one of a unit; its creation is not in the log.
template< typename Monitor >
class MonitorOf : public MonitorTest {
 protected:
   void SetUp() override { takeLog(); }
   void TearDown() override {
      monitor = nullptr;
      MonitorTest::TearDown();
   }

   static Tessel::Ptr< Monitor > monitorOn( sd_bus* connection ) {
      if constexpr( std::is_same_v< Monitor, UnitReloadingMonitor > ) {
         return unitReloadingMonitorFactory( connection, fooPath );
      } else {
         return Tessel::ptrIsImpl< Monitor >( connection );
      }
   }

   Tessel::Ptr< Monitor > monitor = monitorOn( bus );
};

} // namespace Sodrel::Test
