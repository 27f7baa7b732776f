// Generic access to the library's entities, and their generic construction.
#include <scripted/MonitorTest.h>

#include <array>

namespace Sodrel::Test {

namespace {

using Tessel::MemberDesc;
using Tessel::ModuleInspectData;
using Tessel::TypeRef;

const ModuleInspectData& sodrelModule = _Sodrel_c4788d5e_orlModule;
const ModuleInspectData& monitorModule = _SignalMonitor_178310f1_orlModule;

using GenericAccess = MonitorTest;
using GenericConstruction = MonitorTest;

TEST_F( GenericAccess, waitsWithoutAnObjectForANullArgument ) {
   const auto monitor = daemonReloadingMonitorFactory( bus );
   script.next( "sd_bus_process", dispatches( { reloading( true ), reloading( false ) } ) );
   bool result = false;
   const auto wait = Tessel::memberOf( *monitor, "wait" );
   EXPECT_EQ( wait.call( *monitor, &result, nullptr ), 0 );
   EXPECT_TRUE( result );
   script.next( "sd_bus_process", dispatches( { reloading( false ) } ) );
   EXPECT_EQ( wait.call( *monitor, &result, nullptr ), 0 );
   EXPECT_FALSE( result );
}

TEST_F( GenericAccess, waitsForTheObjectThatItIsGiven ) {
   const auto monitor = jobRemovedMonitorFactory( bus );
   script.next( "sd_bus_process", dispatches( { jobRemoved( 42, "done" ) } ) );
   bool result = false;
   const Tessel::String object( jobPath );
   EXPECT_EQ( Tessel::memberOf( *monitor, "wait" ).call( *monitor, &result, &object ), 0 );
   EXPECT_TRUE( result );
}

TEST_F( GenericAccess, passesTheExceptionsOfAnOperation ) {
   const auto monitor = jobRemovedMonitorFactory( bus );
   const Tessel::String object( "nonsense" );
   bool result = false;
   EXPECT_THROW(
      Tessel::memberOf( *monitor, "wait" ).call( *monitor, &result, &object ), SdbusJobException );
}

TEST_F( GenericAccess, readsAndWritesTheTimeLimit ) {
   const auto monitor = unitReloadingMonitorFactory( bus, fooPath );
   fieldIs( *monitor, "syncTimeout", Tessel::Interval( 5 ) );
   EXPECT_EQ( field< Tessel::Interval >( *monitor, "syncTimeout" ).nanoseconds(), 5U );
}

TEST_F( GenericAccess, refusesWhatDoesNotApplyToAMember ) {
   const auto monitor = jobRemovedMonitorFactory( bus );
   const auto& hooks = monitorModule.hooks[0];
   std::array< char, 64 > result{};
   const Tessel::String object( jobPath );
   const auto access = [&]( std::uint32_t id, int request ) {
      MemberDesc member;
      member.id = id;
      return hooks.inspectOperation( result.data(), monitor.get(), member, request, &object );
   };
   EXPECT_EQ( access( 0, 10 ), 1 ) << "calling an attribute";
   EXPECT_EQ( access( 0, 2 ), 1 ) << "an unknown request";
   EXPECT_EQ( access( 0, -1 ), 1 ) << "an unknown request";
   EXPECT_EQ( access( 1, 0 ), 1 ) << "reading an operation";
   EXPECT_EQ( access( 1, 1 ), 1 ) << "writing an operation";
   EXPECT_EQ( access( 2, 10 ), 2 ) << "an unknown member";
   EXPECT_EQ( access( 2, 0 ), 2 ) << "an unknown member";
   EXPECT_EQ( access( 1000, 99 ), 2 ) << "an unknown member";
}

TEST_F( GenericAccess, refusesTheMembersThatAreOnlyDescribed ) {
   const auto job = jobRemovedMonitorFactory( bus );
   const auto daemon = daemonReloadingMonitorFactory( bus );
   const auto unit = unitReloadingMonitorFactory( bus, fooPath );
   const auto refuses = []( Tessel::Node& entity, const char* name ) {
      const auto member = Tessel::memberOf( entity, name );
      std::array< char, 64 > value{};
      EXPECT_EQ( member.read( entity, value.data() ), 1 ) << name;
      EXPECT_EQ( member.write( entity, value.data() ), 1 ) << name;
      EXPECT_EQ( member.call( entity, value.data(), value.data() ), 1 ) << name;
   };
   refuses( *job, "data" );
   refuses( *job, "isUnitObject" );
   refuses( *job, "parseJobId" );
   refuses( *daemon, "data" );
   refuses( *unit, "unitPath" );
   refuses( *unit, "data" );
}

TEST_F( GenericAccess, callsTheHooksOfAMonitor ) {
   const auto monitor = daemonReloadingMonitorFactory( bus );
   takeLog();
   EXPECT_EQ( Tessel::memberOf( *monitor, "handleDeleted" ).call( *monitor, nullptr, nullptr ), 0 );
   EXPECT_EQ(
      Tessel::memberOf( *monitor, "handleInitialized" ).call( *monitor, nullptr, nullptr ), 0 );
   expectLog( {
      "SignalMonitor/8 handleDeleted: Deinitialize DaemonReloadingMonitor",
      "sd_bus_slot_unref( slot1 )",
      "SignalMonitor/8 handleInitialized: Initialize DaemonReloadingMonitor",
      matched( "bus1", managerPath, managerInterface, "Reloading" ),
   } );
}

TEST_F( GenericAccess, readsAndWritesEveryFieldOfTheRecords ) {
   const auto job = jobRemovedMonitorFactory( bus );
   const auto record = job->dataIs();
   fieldIs( *record, "callbackFailed", true );
   fieldIs( *record, "jobId", std::uint32_t{ 4294967295 } );
   fieldIs( *record, "result", Tessel::String( "done" ) );
   EXPECT_TRUE( field< bool >( *record, "callbackFailed" ) );
   EXPECT_EQ( field< std::uint32_t >( *record, "jobId" ), 4294967295U );
   EXPECT_EQ( field< Tessel::String >( *record, "result" ), "done" );

   const auto unit = unitReloadingMonitorFactory( bus, fooPath );
   const auto unitRecord = unit->dataIs();
   const auto daemon = daemonReloadingMonitorFactory( bus );
   const auto daemonRecord = daemon->dataIs();
   for( const char* const name : { "callbackFailed", "started", "finished" } ) {
      fieldIs( *unitRecord, name, true );
      EXPECT_TRUE( field< bool >( *unitRecord, name ) );
      fieldIs( *daemonRecord, name, true );
      EXPECT_TRUE( field< bool >( *daemonRecord, name ) );
   }
   fieldIs( *unitRecord, "failed", true );
   EXPECT_TRUE( field< bool >( *unitRecord, "failed" ) );
}

TEST_F( GenericAccess, callsTheOperationsOfTheClient ) {
   const auto client = createdSdbus();
   const auto call = [&]( const char* name, void* result, const void* argument ) {
      return Tessel::memberOf( *client, name ).call( *client, result, argument );
   };
   const Tessel::String method( "StartUnit" );
   const Tessel::String unit( "foo.service" );
   const Tessel::String mode( "fail" );
   const bool async = true;
   Tessel::String text;
   bool flag = false;
   Orl::VoidPtr pointer = nullptr;

   EXPECT_EQ( call( "sdbus", &pointer, nullptr ), 0 );
   EXPECT_EQ( pointer, client->sdbus() );
   EXPECT_EQ( call( "managerPropertyS", &text, &method ), 0 );
   EXPECT_EQ( text, "running" );
   EXPECT_EQ( call( "managerPropertyB", &flag, &method ), 0 );
   EXPECT_TRUE( flag );
   const std::array< const void*, 2 > unitProperty{ &unit, &method };
   EXPECT_EQ( call( "unitPropertyS", &text, unitProperty.data() ), 0 );
   EXPECT_EQ( call( "asyncManagerCall", nullptr, &method ), 0 );
   const std::array< const void*, 4 > all{ &method, &unit, &mode, &async };
   takeLog();
   EXPECT_EQ( call( "managerCallSsO", &text, all.data() ), 0 );
   EXPECT_EQ( text, jobPath );
   EXPECT_TRUE( takeLog().starts_with(
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager StartUnit foo.service fail, "
      "async=true\n" ) );
   EXPECT_EQ( call( "managerCallSsO", &text, nullptr ), 1 ) << "arguments are missing";

   Orl::VoidPtr reply = script.newReply( o( "/a/path" ) );
   const std::array< const void*, 2 > read{ &reply, &mode };
   EXPECT_EQ( call( "handleSdbusMessageO", &text, read.data() ), 0 );
   EXPECT_EQ( text, "/a/path" );
}

TEST_F( GenericConstruction, makesAMonitorFromTheAddressesOfItsArguments ) {
   const Tessel::String path( fooPath );
   Orl::VoidPtr rawSdbus = bus;
   const std::array< const void*, 2 > arguments{ &rawSdbus, &path };
   UnitReloadingMonitor* made = nullptr;
   monitorModule.hooks[6].constructFromCtorArgs( &made, arguments.data() );
   const auto monitor = Tessel::Ptr< UnitReloadingMonitor >::adopt( made );
   EXPECT_EQ( monitor->useCount(), 1U );
   expectLog( {
      std::string( "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for " ) +
         fooPath,
      matched( "bus1", fooPath, "org.freedesktop.DBus.Properties", "PropertiesChanged" ),
   } );
}

TEST_F( GenericConstruction, makesEveryTypeButTheAbstractOne ) {
   EXPECT_EQ( monitorModule.hooks[0].constructFromCtorArgs, nullptr );
   const Tessel::String path( fooPath );
   Orl::VoidPtr rawSdbus = bus;
   const std::array< const void*, 2 > arguments{ &rawSdbus, &path };
   for( std::uint32_t index = 1; index < 7; ++index ) {
      Tessel::Node* made = nullptr;
      monitorModule.hooks[index].constructFromCtorArgs( &made, arguments.data() );
      const auto entity = Tessel::Ptr< Tessel::Node >::adopt( made );
      EXPECT_EQ( entity->typeData(), ( TypeRef{ &monitorModule, index } ) );
      EXPECT_EQ( entity->useCount(), 1U );
      EXPECT_TRUE( entity->nodeFlag( 0x20000000 ) );
   }
   Tessel::Node* made = nullptr;
   sodrelModule.hooks[0].constructFromCtorArgs( &made, nullptr );
   const auto client = Tessel::Ptr< Tessel::Node >::adopt( made );
   EXPECT_EQ( client->typeData(), ( TypeRef{ &sodrelModule, 0 } ) );
}

TEST_F( GenericConstruction, passesTheExceptionOfTheConstructor ) {
   script.next( "sd_bus_open_system", fails( 2 ) );
   Tessel::Node* made = nullptr;
   EXPECT_THROW( sodrelModule.hooks[0].constructFromCtorArgs( &made, nullptr ), NoSdbusException );
   EXPECT_EQ( made, nullptr );
}

} // namespace

} // namespace Sodrel::Test
