// The behaviour of the scripted manager that other tests rely on.
#include <algorithm>
#include <string>

#include <gmock/gmock.h>

#include <support/PrivateBusRecord.h>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

using ::testing::ElementsAre;

class AScriptedManager : public ALibraryClient {
 protected:
   // Returns what the manager and strangers have sent.
   Texts said() {
      manager.run( {} );
      return record.said();
   }

   PrivateBusRecord record{ bus };
};

TEST_F( AScriptedManager, followsTheScriptsOfACallAndOtherwiseSystemd ) {
   manager.onCall( "GetUnit", { reply( body( "o", "/a" ) ) } );
   manager.onCall( "GetUnit", { reply( body( "o", "/b" ) ) } );
   const auto unit = [&] { return outcomeOf( "asyncManagerCallSO GetUnit web.service" ); };
   EXPECT_EQ( unit(), "/a" );
   EXPECT_EQ( unit(), "/b" );
   EXPECT_EQ( unit(), unitPath( "web.service" ) );
   manager.onEveryCall( "GetUnit", { reply( body( "o", "/c" ) ) } );
   EXPECT_EQ( unit(), "/c" );
   EXPECT_EQ( unit(), "/c" );
   manager.start();
   EXPECT_EQ( unit(), unitPath( "web.service" ) );
}

TEST_F( AScriptedManager, sendsWhateverAScriptContains ) {
   manager.onCall(
      "Odd", { signal( "Reloading", body( "s", "yes" ) ), signal( "Reloading", {} ),
               propertiesChanged( "web.service", body( "a(so)t", 1, "a", "/a", uint64_t{ 5 } ) ),
               byStranger( reloading( true ) ), reply( body( "b", false ) ), reloading( false ) } );
   outcomeOf( "asyncManagerCall Odd" );
   manager.run( { activeState( "web.service", "failed" ) } );
   EXPECT_EQ( outcomeOf( "unitPropertyS web.service ActiveState" ), "failed" );
   const Texts all = said();
   const auto odd = std::ranges::find( all, "Reloading yes" );
   EXPECT_THAT(
      Texts( odd, odd + 8 ),
      ElementsAre(
         "Reloading yes", "Reloading", "PropertiesChanged a /a 5", "Reloading true", "reply false",
         "Reloading false", "PropertiesChanged org.freedesktop.systemd1.Service MainPID 0",
         "PropertiesChanged org.freedesktop.systemd1.Unit ActiveState failed "
         "StateChangeTimestamp 0 Conditions" ) );
}

TEST_F( AScriptedManager, emitsAsManyJobsAsItIsTold ) {
   manager.run( { foreignJobs( 1'000, 2'000 ), jobRemoved( 7, "done" ) } );
   const Texts all = said();
   ASSERT_EQ( all.size(), 2'001U );
   EXPECT_EQ( all[0], "JobRemoved 1000 " + jobOf( 1'000 ) + " any.service done" );
   EXPECT_EQ( all[1'999], "JobRemoved 2999 " + jobOf( 2'999 ) + " any.service done" );
   EXPECT_EQ( all[2'000], "JobRemoved 7 " + jobOf( 7 ) + " any.service done" );
}

const struct {
   const char* method;
   const char* unit;
   Texts states;
   const char* result;
} jobs[]{
   { "StartUnit", "idle.service", { "inactive", "activating", "active" }, "done" },
   { "StartUnit", "web.service", { "active" }, "done" },
   { "StartUnit", "crashed.service", { "failed", "activating", "failed" }, "failed" },
   { "StopUnit", "web.service", { "active", "deactivating", "inactive" }, "done" },
   { "StopUnit", "idle.service", { "inactive" }, "done" },
   { "TryRestartUnit", "idle.service", { "inactive" }, "done" },
   { "ReloadUnit", "web.service", { "active", "reloading", "active" }, "done" },
   { "ReloadUnit", "idle.service", { "inactive" }, "invalid" },
   { "ReloadOrRestartUnit",
     "simple.service",
     { "active", "deactivating", "inactive", "active" },
     "done" },
   { "ReloadOrRestartUnit", "idle.service", { "inactive", "activating", "active" }, "done" },
   { "ReloadOrTryRestartUnit", "idle.service", { "inactive" }, "done" },
   { "ReloadOrTryRestartUnit", "web.service", { "active", "reloading", "active" }, "done" },
};

TEST_F( AScriptedManager, takesUnitsThroughTheStatesOfRealOnes ) {
   for( const auto& [method, unit, states, result] : jobs ) {
      SCOPED_TRACE( std::string( method ) + " " + unit );
      manager.start();
      subscribe();
      record.clear();
      client->asyncManagerCallSsO( method, unit, "replace" );
      // The first state is announced when the job is queued, the others after the reply.
      Texts expected{ "reply running" };
      for( const std::string& state : states ) {
         expected.push_back( "PropertiesChanged org.freedesktop.systemd1.Service MainPID 0" );
         expected.push_back(
            "PropertiesChanged org.freedesktop.systemd1.Unit ActiveState " + state +
            " StateChangeTimestamp 0 Conditions" );
      }
      expected.insert( expected.begin() + 3, "reply " + jobOf( 1 ) );
      expected.push_back( "JobRemoved 1 " + jobOf( 1 ) + " " + unit + " " + result );
      EXPECT_EQ( said(), expected );
   }
}

} // namespace

} // namespace SodrelTest
