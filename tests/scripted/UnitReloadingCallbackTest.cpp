// How the monitor of a unit's reload reads its signal.
#include <scripted/UnitMonitorTest.h>

#include <cerrno>

namespace Sodrel::Test {

namespace {

using TheUnitReloadingCallback = UnitMonitorTest;

TEST_F( TheUnitReloadingCallback, ignoresOtherInterfacesOfTheUnit ) {
   const Content changed = properties( { activeState( "failed" ) } );
   script.next(
      "sd_bus_process", dispatches( {
                           propertiesChanged( "org.freedesktop.systemd1.Service", changed ),
                           propertiesChanged( "org.freedesktop.systemd1.Unit2", changed ),
                           propertiesChanged( "", changed ),
                        } ) );
   script.next( "sd_bus_process", {} );
   EXPECT_EQ( waiting(), timeout );
   expectRecord( false, false, false, false );
   const std::string ignored = "sd_bus_message_read( PropertiesChanged, s )\n"
                               "PropertiesChanged callback gives 0\n";
   EXPECT_TRUE( takeLog().starts_with(
      "SignalMonitor/8 wait: Wait for PropertiesChanged signal\n"
      "steady_clock::now()\n"
      "sd_bus_process( bus1, null )\n" +
      ignored + ignored + ignored + "sd_bus_process( bus1, null )\n" ) );
}

TEST_F( TheUnitReloadingCallback, skipsOtherPropertiesAroundTheActiveState ) {
   const Content list = variant( "as", texts( { s( "a" ), s( "b" ) } ) );
   script.next(
      "sd_bus_process",
      dispatches( { propertiesChanged(
         unitInterface, properties( {
                           property( "SubState", variant( "s", s( "failed" ) ) ),
                           activeState( "reloading" ),
                           property( "After", list ),
                           activeState( "active" ),
                           property( "ActiveStateX", variant( "s", s( "failed" ) ) ),
                        } ) ) } ) );
   EXPECT_EQ( waiting(), "nothing" );
   const std::string entered = "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
                               "sd_bus_message_read( PropertiesChanged, s )\n";
   const std::string skipped = entered + "sd_bus_message_skip( PropertiesChanged, v )\n"
                                         "sd_bus_message_exit_container( PropertiesChanged )";
   const std::string applied = entered + "sd_bus_message_read( PropertiesChanged, v, s )\n"
                                         "sd_bus_message_exit_container( PropertiesChanged )";
   expectLog( {
      "SignalMonitor/8 wait: Wait for PropertiesChanged signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "sd_bus_message_read( PropertiesChanged, s )",
      "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )",
      skipped,
      applied,
      skipped,
      applied,
      skipped,
      "sd_bus_message_enter_container( PropertiesChanged, e, sv )",
      "sd_bus_message_exit_container( PropertiesChanged )",
      "PropertiesChanged callback gives 0",
      "sd_bus_process( bus1, null )",
      "steady_clock::now()",
   } );
}

TEST_F( TheUnitReloadingCallback, doesNotLookAtTheResultsOfSkippingAndLeaving ) {
   script.next( "sd_bus_message_skip", fails( EBADMSG ) );
   for( int i = 0; i < 3; ++i ) {
      script.next( "sd_bus_message_exit_container", fails( EBUSY ) );
   }
   script.next(
      "sd_bus_process", dispatches( {
                           propertiesChanged(
                              unitInterface, properties( {
                                                property( "SubState", variant( "s", s( "x" ) ) ),
                                                activeState( "reloading" ),
                                             } ) ),
                           unitBecomes( "active" ),
                        } ) );
   EXPECT_EQ( waiting(), "nothing" );
}

TEST_F( TheUnitReloadingCallback, changesNothingForASignalWithoutProperties ) {
   EXPECT_EQ(
      callbackLog( properties( {} ) ),
      "sd_bus_message_read( PropertiesChanged, s )\n"
      "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )\n"
      "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
      "sd_bus_message_exit_container( PropertiesChanged )\n"
      "PropertiesChanged callback gives 0" );
   expectRecord( false, false, false, false );
}

TEST_F( TheUnitReloadingCallback, failsWhenTheInterfaceCannotBeRead ) {
   script.dispatch(
      bus, { fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", u( 1 ) } );
   expectLog( {
      "sd_bus_message_read( PropertiesChanged, s )",
      "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
      "Failed to parse PropertiesChanged signal. )",
      "PropertiesChanged callback gives -6",
   } );
   expectRecord( true, false, false, false );
}

TEST_F( TheUnitReloadingCallback, failsWhenThePropertiesAreNoArray ) {
   EXPECT_EQ(
      callbackLog( s( "x" ) ), "sd_bus_message_read( PropertiesChanged, s )\n"
                               "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )\n"
                               "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
                               "Failed to enter an array of changed properties. )\n"
                               "PropertiesChanged callback gives -6" );
   expectRecord( true, false, false, false );
}

TEST_F( TheUnitReloadingCallback, failsWhenAnEntryCannotBeEntered ) {
   EXPECT_EQ(
      callbackLog( properties( { u( 1 ) } ) ),
      "sd_bus_message_read( PropertiesChanged, s )\n"
      "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )\n"
      "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
      "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
      "Failed to parse an entity with changed properties. )\n"
      "PropertiesChanged callback gives -6" );
   expectRecord( true, false, false, false );
}

TEST_F( TheUnitReloadingCallback, failsWhenTheNameOfAPropertyCannotBeRead ) {
   script.next( "sd_bus_message_read", { .result = 1 } );
   script.next( "sd_bus_message_read", fails( EBADMSG ) );
   EXPECT_EQ(
      callbackLog( properties( { activeState( "reloading" ) } ) ),
      "sd_bus_message_read( PropertiesChanged, s )\n"
      "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )\n"
      "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
      "sd_bus_message_read( PropertiesChanged, s )\n"
      "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
      "Failed to parse name of changed property. )\n"
      "PropertiesChanged callback gives -74" );
   expectRecord( true, false, false, false );
}

TEST_F( TheUnitReloadingCallback, failsWhenTheActiveStateIsNoString ) {
   script.next(
      "sd_bus_process",
      dispatches( { propertiesChanged(
         unitInterface, properties( { activeState( "reloading" ),
                                      property( "ActiveState", variant( "u", u( 1 ) ) ) } ) ) } ) );
   EXPECT_EQ( waiting(), callbackFailed );
   const std::string entered = "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
                               "sd_bus_message_read( PropertiesChanged, s )\n"
                               "sd_bus_message_read( PropertiesChanged, v, s )";
   expectLog( {
      "SignalMonitor/8 wait: Wait for PropertiesChanged signal",
      "steady_clock::now()",
      "sd_bus_process( bus1, null )",
      "sd_bus_message_read( PropertiesChanged, s )",
      "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )",
      entered,
      "sd_bus_message_exit_container( PropertiesChanged )",
      entered,
      "sd_bus_error_set( error, org.freedesktop.DBus.Error.Failed, "
      "Failed to parse value of ActiveState property. )",
      "PropertiesChanged callback gives -6",
   } );
   expectRecord( true, true, false, false );
}

TEST_F( TheUnitReloadingCallback, failsForTheErrorNextToSuccessToo ) {
   for( std::size_t call = 1; call <= 5; ++call ) {
      monitor = nullptr;
      monitor = monitorOn( bus );
      script.faultIs( call, false, fails( EPERM ) );
      script.dispatch( bus, unitBecomes( "reloading" ) );
      script.faultIs( 0 );
      EXPECT_TRUE( takeLog().ends_with( "\nPropertiesChanged callback gives -1" ) );
      expectRecord( true, false, false, false );
   }
}

TEST_F( TheUnitReloadingCallback, takesASignalThatEndsEarlyAsOneWithoutAState ) {
   Signal signal{ fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", {} };
   script.dispatch( bus, signal );
   expectLog( {
      "sd_bus_message_read( PropertiesChanged, s )",
      "PropertiesChanged callback gives 0",
   } );
   signal.content = s( unitInterface );
   script.dispatch( bus, signal );
   expectLog( {
      "sd_bus_message_read( PropertiesChanged, s )",
      "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )",
      "sd_bus_message_enter_container( PropertiesChanged, e, sv )",
      "sd_bus_message_exit_container( PropertiesChanged )",
      "PropertiesChanged callback gives 0",
   } );
   expectRecord( false, false, false, false );
}

TEST_F( TheUnitReloadingCallback, takesANameOrAStateThatIsNotThereAsAnEmptyOne ) {
   for( const int readBefore : { 1, 2 } ) {
      for( int i = 0; i < readBefore; ++i ) {
         script.next( "sd_bus_message_read", { .result = 1 } );
      }
      script.next( "sd_bus_message_read", {} );
      for( const int entered : { 1, 1, 0 } ) {
         script.next( "sd_bus_message_enter_container", { .result = entered } );
      }
      const std::string rest = readBefore == 1 ? "sd_bus_message_skip( PropertiesChanged, v )\n"
                                               : "sd_bus_message_read( PropertiesChanged, v, s )\n";
      EXPECT_EQ(
         callbackLog( properties( { activeState( "reloading" ) } ) ),
         "sd_bus_message_read( PropertiesChanged, s )\n"
         "sd_bus_message_enter_container( PropertiesChanged, a, {sv} )\n"
         "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
         "sd_bus_message_read( PropertiesChanged, s )\n" +
            rest +
            "sd_bus_message_exit_container( PropertiesChanged )\n"
            "sd_bus_message_enter_container( PropertiesChanged, e, sv )\n"
            "sd_bus_message_exit_container( PropertiesChanged )\n"
            "PropertiesChanged callback gives 0" );
      expectRecord( false, false, false, false );
   }
}

TEST_F( TheUnitReloadingCallback, takesNullStringsAsEmptyOnes ) {
   callbackLog( properties( { property( "ActiveState", variant( "s", s( std::nullopt ) ) ) } ) );
   script.dispatch(
      bus, { fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged", s( std::nullopt ) } );
   expectRecord( false, false, false, false );
}

} // namespace

} // namespace Sodrel::Test
