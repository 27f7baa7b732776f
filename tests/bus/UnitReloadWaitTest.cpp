// Waits for the reload of a unit, with states and signals that systemd does not produce.
#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "LibraryFixture.h"

namespace SodrelTest {

namespace {

const std::string waiting = syncFailed + "UnitReloadingMonitor::wait, ";
const std::string timeout = waiting + "600.000000 timeout";
const std::string unitFailed = waiting + "unit " + unitPath( "web.service" ) + " failed: Success";

// A change of the unit's own properties, with any contents.
template< typename... Values >
Action changed( const Values&... values ) {
   return propertiesChanged( "web.service", body( "sa{sv}as", unitInterface, values..., 0 ) );
}

Action state( const std::string& value ) {
   return changed( 1, "ActiveState", "s", value );
}

Script states( const Texts& values ) {
   Script script;
   std::ranges::transform( values, std::back_inserter( script ), state );
   return script;
}

class AWaitForAUnit : public ALibraryClient {
 protected:
   // Returns the outcome if these are sent before the reply, all read in the wait's first pass.
   std::string whenSaid( Script script ) {
      script.push_back( replyJob( 7 ) );
      return callScripted( "ReloadUnit", script );
   }
};

TEST_F( AWaitForAUnit, endsWhenTheUnitIsActiveAfterAReloadOrActivation ) {
   for( const Texts& said : std::vector< Texts >{
           { "reloading", "active" },
           { "activating", "active" },
           { "active", "deactivating", "inactive", "activating", "active" },
           { "reloading", "deactivating", "active" },
           { "failed", "activating", "active" },
           { "reloading", "failed", "active" },
           { "reloading", "active", "failed" },
           { "reloading", "active", "reloading" },
        } ) {
      EXPECT_EQ( whenSaid( states( said ) ), jobOf( 7 ) );
   }
}

TEST_F( AWaitForAUnit, timesOutOtherwise ) {
   moments.hurryWaits( true );
   for( const Texts& said : std::vector< Texts >{
           {},
           { "active" },
           { "reloading" },
           { "active", "deactivating", "inactive", "active" },
           { "reloading", "Active" },
           { "maintenance", "refreshing", "", "active" },
           { "failed", "activating" },
           { "failed", "inactive", "active" },
        } ) {
      EXPECT_EQ( whenSaid( states( said ) ), timeout );
   }
}

TEST_F( AWaitForAUnit, failsWhenTheUnitHasFailed ) {
   for( const Texts& said : std::vector< Texts >{
           { "failed" }, { "reloading", "failed" }, { "active", "activating", "failed" } } ) {
      EXPECT_EQ( whenSaid( states( said ) ), unitFailed );
   }
}

TEST_F( AWaitForAUnit, seesSignalsAfterTheReplyToo ) {
   for( const std::string method : { "ReloadUnit", "ReloadOrRestartUnit" } ) {
      EXPECT_EQ(
         callScripted( method, { state( "reloading" ), replyJob( 7 ), state( "active" ) } ),
         jobOf( 7 ) );
      EXPECT_EQ(
         callScripted( method, { replyJob( 7 ), state( "activating" ), state( "failed" ) } ),
         unitFailed );
   }
}

TEST_F( AWaitForAUnit, readsNothingButTheStateOfAUnit ) {
   const auto of = []( const char* interface ) {
      return propertiesChanged(
         "web.service", body( "sa{sv}as", interface, 1, "ActiveState", "s", "failed", 0 ) );
   };
   for( const Script& script : std::vector< Script >{
           // The state may or may not be among other properties.
           { changed(
                3, "A", "as", 2, "a", "b", "ActiveState", "s", "reloading", "B", "(ub)", 1, true ),
             changed( 0 ), changed( 1, "SubState", "s", "failed" ),
             changed( 1, "activestate", "s", "failed" ),
             changed( 2, "ActiveState", "s", "inactive", "ActiveState", "s", "active" ) },
           // Other interfaces are not read at all.
           { of( "org.freedesktop.systemd1.Service" ), of( "org.freedesktop.systemd1.Unit " ),
             of( "org.freedesktop.systemd1.Uni" ), of( "" ),
             propertiesChanged( "web.service", body( "s", "org.freedesktop.systemd1.Service" ) ),
             propertiesChanged( "web.service", body( "su", "org.freedesktop.systemd1.Job", 7 ) ),
             state( "reloading" ), state( "active" ) },
           // Nor are the names of invalidated properties.
           { propertiesChanged(
                "web.service",
                body( "sa{sv}", unitInterface, 1, "ActiveState", "s", "reloading" ) ),
             propertiesChanged(
                "web.service",
                body( "sa{sv}u", unitInterface, 1, "ActiveState", "s", "active", 7 ) ) },
        } ) {
      EXPECT_EQ( whenSaid( script ), jobOf( 7 ) );
   }
}

TEST_F( AWaitForAUnit, ignoresSignalsOfOtherSendersAndUnits ) {
   const Body failed = body( "sa{sv}as", unitInterface, 1, "ActiveState", "s", "failed", 0 );
   const std::string path = unitPath( "web.service" );
   EXPECT_EQ(
      whenSaid( { state( "reloading" ), state( "active" ), byStranger( state( "failed" ) ),
                  byStranger( propertiesChanged( "web.service", {} ) ),
                  propertiesChanged( "idle.service", failed ),
                  signal( path, unitInterface, "PropertiesChanged", failed ),
                  signal( path, propertiesInterface, "PropertiesLost", failed ),
                  jobRemoved( 7, "failed" ) } ),
      jobOf( 7 ) );
   moments.hurryWaits( true );
   EXPECT_EQ(
      whenSaid( { byStranger( state( "reloading" ) ), byStranger( state( "active" ) ) } ),
      timeout );
}

TEST_F( AWaitForAUnit, failsIfASignalCannotBeRead ) {
   const std::string unit = unitInterface;
   for( const Body& odd : std::vector< Body >{
           {},
           body( "u", 7 ),
           body( "as", 1, unit ),
           body( "s", unit ),
           body( "su", unit, 7 ),
           body( "sas", unit, 0 ),
           body( "sa{ss}as", unit, 1, "ActiveState", "active", 0 ),
           body( "sa{uv}as", unit, 1, 7, "s", "active", 0 ),
           body( "sa(sv)as", unit, 1, "ActiveState", "s", "active", 0 ),
           body( "sa{sv}as", unit, 1, "ActiveState", "u", 7, 0 ),
           body( "sa{sv}as", unit, 1, "ActiveState", "o", "/active", 0 ),
           body( "sa{sv}as", unit, 1, "ActiveState", "v", "s", "active", 0 ),
           body( "sa{sv}as", unit, 2, "ActiveState", "s", "active", "ActiveState", "b", true, 0 ),
        } ) {
      SCOPED_TRACE( odd.signature );
      EXPECT_EQ(
         whenSaid(
            { state( "reloading" ), propertiesChanged( "web.service", odd ), state( "active" ) } ),
         waiting + "callback handling failed" );
   }
}

TEST_F( AWaitForAUnit, neitherReadsTheJobNorNeedsOne ) {
   EXPECT_EQ(
      callScripted(
         "ReloadUnit",
         { state( "reloading" ), state( "active" ), reply( body( "o", "/no/job" ) ) } ),
      "/no/job" );
}

TEST_F( AWaitForAUnit, followsThePathThatTheManagerReturns ) {
   manager.onCall( "GetUnit", { reply( body( "o", unitPath( "idle.service" ) ) ) } );
   manager.onCall(
      "ReloadUnit", { replyJob( 7 ), activeState( "idle.service", "reloading" ),
                      activeState( "idle.service", "active" ) } );
   EXPECT_EQ( call( "ReloadUnit", "alias.service" ), jobOf( 7 ) );
}

TEST_F( AWaitForAUnit, doesNotBeginForAnUnknownUnit ) {
   EXPECT_EQ(
      call( "ReloadUnit", "no.service" ),
      callFailed +
         "asyncManagerCallSO, sd-bus call GetUnit no.service failed: Unit no.service not loaded." );
   manager.onCall( "GetUnit", { reply( body( "s", "/unit" ) ) } );
   EXPECT_EQ(
      call( "ReloadUnit" ), "Sodrel::SdbusMessageException: Sdbus::asyncManagerCallSO, message "
                            "read failed when calling GetUnit web.service: No such device or "
                            "address" );
}

} // namespace

} // namespace SodrelTest
