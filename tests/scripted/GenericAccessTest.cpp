// Generic access to the library's entities, and their generic construction.
#include <scripted/Monitors.h>

#include <platform/value/VoidPtr.h>

#include <array>

namespace SodrelTest {

namespace {

using Tessel::TypeRef;

const Tessel::ModuleInspectData& sodrelModule = _Sodrel_c4788d5e_orlModule;
const Tessel::ModuleInspectData& monitorModule = _SignalMonitor_178310f1_orlModule;

class GenericAccess : public BusTest {
 protected:
   static int call( Tessel::Node& entity, const char* name, void* result, const void* argument ) {
      return Tessel::memberOf( entity, name ).call( entity, result, argument );
   }
};

using GenericConstruction = BusTest;

TEST_F( GenericAccess, waitsWithoutAnObjectForANullArgument ) {
   const auto monitor = daemonReloadingMonitor.make( bus );
   for( const bool started : { true, false } ) {
      script.next(
         "sd_bus_process", started ? dispatches( { reloading( true ), reloading( false ) } )
                                   : dispatches( { reloading( false ) } ) );
      bool result = !started;
      EXPECT_EQ( call( *monitor, "wait", &result, nullptr ), 0 );
      EXPECT_EQ( result, started );
   }
}

TEST_F( GenericAccess, waitsForTheGivenObjectAndPassesExceptionsOn ) {
   const auto monitor = jobRemovedMonitor.make( bus );
   script.next( "sd_bus_process", dispatches( { jobRemoved( 42, "done" ) } ) );
   bool result = false;
   Tessel::String object( jobPath );
   EXPECT_EQ( call( *monitor, "wait", &result, &object ), 0 );
   EXPECT_TRUE( result );
   object = "nonsense";
   EXPECT_THROW( call( *monitor, "wait", &result, &object ), Sodrel::SdbusJobException );
}

TEST_F( GenericAccess, refusesWhatDoesNotApplyToAMember ) {
   const auto monitor = jobRemovedMonitor.make( bus );
   std::array< char, 64 > result{};
   const Tessel::String object( jobPath );
   const auto access = [&]( std::uint32_t id, int request ) {
      Tessel::MemberDesc member;
      member.id = id;
      return monitorModule.hooks[0].inspectOperation(
         result.data(), monitor.get(), member, request, &object );
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
   const auto refuses = [this]( const Monitor& kind, const char* name ) {
      const auto monitor = kind.make( bus );
      const auto member = Tessel::memberOf( *monitor, name );
      std::array< char, 64 > value{};
      EXPECT_EQ( member.read( *monitor, value.data() ), 1 ) << name;
      EXPECT_EQ( member.write( *monitor, value.data() ), 1 ) << name;
      EXPECT_EQ( member.call( *monitor, value.data(), value.data() ), 1 ) << name;
   };
   refuses( jobRemovedMonitor, "data" );
   refuses( jobRemovedMonitor, "isUnitObject" );
   refuses( jobRemovedMonitor, "parseJobId" );
   refuses( daemonReloadingMonitor, "data" );
   refuses( unitReloadingMonitor, "unitPath" );
   refuses( unitReloadingMonitor, "data" );
}

TEST_F( GenericAccess, callsTheHooksOfAMonitor ) {
   for( const Monitor& kind :
        { jobRemovedMonitor, daemonReloadingMonitor, unitReloadingMonitor } ) {
      const auto monitor = kind.make( bus );
      const std::string begun = takeLog();
      EXPECT_EQ( call( *monitor, "handleDeleted", nullptr, nullptr ), 0 );
      EXPECT_TRUE( takeLog().starts_with( "SignalMonitor/8 handleDeleted: Deinitialize " ) );
      EXPECT_EQ( call( *monitor, "handleInitialized", nullptr, nullptr ), 0 );
      EXPECT_TRUE( begun.ends_with( takeLog() ) );
   }
}

TEST_F( GenericAccess, writesTheFieldsOfARecordAndTheTimeLimit ) {
   const auto monitor = unitReloadingMonitor.make( bus );
   fieldIs( *monitor, "syncTimeout", Tessel::Interval( 5 ) );
   EXPECT_EQ( fieldOf( *monitor, "syncTimeout" ), "5" );
   const auto record = unitReloadingMonitor.dataIs( *monitor );
   for( const char* const name : { "callbackFailed", "started", "finished", "failed" } ) {
      fieldIs( *record, name, true );
      EXPECT_EQ( fieldOf( *record, name ), "true" );
   }
}

TEST_F( GenericAccess, callsTheOperationsOfTheClient ) {
   const auto client = createdSdbus();
   const Tessel::String method( "StartUnit" );
   const Tessel::String unit( "foo.service" );
   const Tessel::String mode( "fail" );
   const bool async = true;
   Tessel::String text;
   bool flag = false;
   Orl::VoidPtr pointer = nullptr;

   EXPECT_EQ( call( *client, "sdbus", &pointer, nullptr ), 0 );
   EXPECT_EQ( pointer, client->sdbus() );
   EXPECT_EQ( call( *client, "managerPropertyS", &text, &method ), 0 );
   EXPECT_EQ( text, "running" );
   EXPECT_EQ( call( *client, "managerPropertyB", &flag, &method ), 0 );
   EXPECT_TRUE( flag );
   const std::array< const void*, 2 > unitProperty{ &unit, &method };
   EXPECT_EQ( call( *client, "unitPropertyS", &text, unitProperty.data() ), 0 );
   EXPECT_EQ( call( *client, "asyncManagerCall", nullptr, &method ), 0 );
   const std::array< const void*, 4 > all{ &method, &unit, &mode, &async };
   takeLog();
   EXPECT_EQ( call( *client, "managerCallSsO", &text, all.data() ), 0 );
   EXPECT_EQ( text, jobPath );
   EXPECT_TRUE( takeLog().starts_with(
      "Sodrel/8 managerCallSsO: Call sd-bus systemd manager StartUnit foo.service fail, "
      "async=true\n" ) );
   EXPECT_EQ( call( *client, "managerCallSsO", &text, nullptr ), 1 ) << "arguments are missing";

   Orl::VoidPtr reply = script.newReply( o( "/a/path" ) );
   const std::array< const void*, 2 > read{ &reply, &mode };
   EXPECT_EQ( call( *client, "handleSdbusMessageO", &text, read.data() ), 0 );
   EXPECT_EQ( text, "/a/path" );
}

TEST_F( GenericConstruction, makesEveryTypeButTheAbstractOne ) {
   EXPECT_EQ( monitorModule.hooks[0].constructFromCtorArgs, nullptr );
   const Tessel::String path( "/a" );
   Orl::VoidPtr rawSdbus = bus;
   const std::array< const void*, 2 > arguments{ &rawSdbus, &path };
   const auto made = []( const Tessel::ModuleInspectData& module, std::uint32_t index,
                         const void* const* with ) {
      Tessel::Node* node = nullptr;
      module.hooks[index].constructFromCtorArgs( &node, with );
      const auto entity = Tessel::Ptr< Tessel::Node >::adopt( node );
      EXPECT_EQ( entity->typeData(), ( TypeRef{ &module, index } ) );
      EXPECT_EQ( entity->useCount(), 1U );
      EXPECT_TRUE( entity->nodeFlag( 0x20000000 ) );
   };
   for( std::uint32_t index = 1; index < 7; ++index ) {
      takeLog();
      made( monitorModule, index, arguments.data() );
   }
   EXPECT_TRUE( takeLog().starts_with(
      "SignalMonitor/8 handleInitialized: Initialize UnitReloadingMonitor for /a\n"
      "sd_bus_match_signal( bus1, slot, org.freedesktop.systemd1, /a, " ) );
   made( sodrelModule, 0, nullptr );
}

TEST_F( GenericConstruction, passesTheExceptionOfTheConstructor ) {
   script.next( "sd_bus_open_system", fails( 2 ) );
   Tessel::Node* made = nullptr;
   EXPECT_THROW(
      sodrelModule.hooks[0].constructFromCtorArgs( &made, nullptr ), Sodrel::NoSdbusException );
   EXPECT_EQ( made, nullptr );
}

} // namespace

} // namespace SodrelTest
