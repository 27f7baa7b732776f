// The fixtures of the scripted tests: a script, a clock, one log of calls, traces and released
// entities, and the check that everything that was created has been released.
#pragma once

#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <platform/trace/TextTrace.h>
#include <support/ScriptedClock.h>
#include <support/ScriptedLog.h>
#include <support/ScriptedSdbus.h>
#include <support/SystemdNames.h>

#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace SodrelTest {

using Sodrel::DaemonReloadingMonitor;
using Sodrel::JobRemovedMonitor;
using Sodrel::Sdbus;
using Sodrel::SignalMonitor;
using Sodrel::UnitReloadingMonitor;

// The name and the text of the exception that `action` throws, or "nothing".
std::string thrownBy( const std::function< void() >& action );

// The library's live entities, "" if there are none.
std::string livingEntities();

// The number of slab blocks that are allocated and not yet released.
std::size_t slabBlocks();

// An attribute of an entity by generic access, and all that its type declares: "NAME=VALUE ...".
std::string fieldOf( Tessel::Node& entity, std::string_view name );
std::string fieldsOf( Tessel::Node& entity );
template< typename T >
void fieldIs( Tessel::Node& entity, const char* name, const T& value ) {
   EXPECT_EQ( Tessel::memberOf( entity, name ).write( entity, &value ), 0 ) << name;
}

// What future waits of job and unit monitors return, which never return failure by themselves.
// While there are any, the factories of these monitors, which are replaced by name, create monitors
// that log the object and do not wait.
extern std::deque< bool > unluckyWaits;

class ScriptedTest : public testing::Test, private Tessel::TraceSink {
 public:
   ScriptedTest( const ScriptedTest& ) = delete;
   ScriptedTest& operator=( const ScriptedTest& ) = delete;

 protected:
   ScriptedTest();
   ~ScriptedTest() override;
   void TearDown() override;

   // A client; its creation is not in the log.
   static Tessel::Ptr< Sdbus > createdSdbus();

   ScriptedSdbus script;
   ScriptedClock clock;
   // Called with each trace.
   std::function< void( const Tessel::TextTrace& trace ) > onTrace;

 private:
   void traceIs( const Tessel::TextTrace& trace ) override;
};

// A fixture with a client on bus1.
class ClientTest : public ScriptedTest {
 protected:
   void TearDown() override;

   Tessel::Ptr< Sdbus > client = createdSdbus();
};

// A fixture with a connection, bus1, that no client uses.
class BusTest : public ScriptedTest {
 protected:
   void TearDown() override;

   sd_bus* const bus = script.newBus();
};

} // namespace SodrelTest
