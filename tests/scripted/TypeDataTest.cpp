// The type data of the library's entities.
#include <scripted/Monitors.h>

#include <array>
#include <string>
#include <vector>

namespace SodrelTest {

namespace {

using Tessel::MemberDesc;
using Tessel::ModuleInspectData;
using Tessel::TypeDesc;
using Tessel::TypeRef;

const ModuleInspectData& sodrelModule = _Sodrel_c4788d5e_orlModule;
const ModuleInspectData& monitorModule = _SignalMonitor_178310f1_orlModule;

// In the order of ValueType.
constexpr const char* typeTexts[] = {
   "void", "bool", "u32", "s32", "duration", "string", "optional string", "pointer", "entity",
};

std::string typeText( Tessel::ValueType type ) {
   return typeTexts[static_cast< std::size_t >( type )];
}

std::string nameOf( TypeRef type ) {
   return type == Tessel::nodeType ? "Tessel::Node"
                                   : std::string( type.module->types[type.index].name );
}

std::string
paramsText( const ModuleInspectData& module, std::uint32_t first, std::uint32_t count ) {
   std::string all( 1, '(' );
   for( const auto& param : module.params.subspan( first, count ) ) {
      all += all.size() == 1 ? "" : ", ";
      all += typeText( param.type ) + " " + std::string( param.name );
   }
   return all + ")";
}

// A type as it would be declared, each member after its ID.
std::string declaration( const ModuleInspectData& module, std::uint32_t index ) {
   const TypeDesc& type = module.types[index];
   std::string text = std::string( type.name ) +
                      paramsText( module, type.firstParam, type.paramCount ) + " : " +
                      nameOf( module.typeRefs[type.base] );
   for( const MemberDesc& member : module.members.subspan( type.firstMember, type.memberCount ) ) {
      text += '\n';
      text += std::to_string( member.id ) + " ";
      text += member.type == Tessel::ValueType::entity ? nameOf( module.typeRefs[member.typeRef] )
                                                       : typeText( member.type );
      text += ' ';
      text += member.name;
      if( member.kind == Tessel::MemberKind::operation ) {
         text += paramsText( module, member.firstParam, member.paramCount );
      }
   }
   return text;
}

std::string joined( std::span< const std::string_view > names ) {
   std::string all;
   for( const std::string_view name : names ) {
      all += all.empty() ? "" : " ";
      all += name;
   }
   return all;
}

using TheTypeData = BusTest;

TEST_F( TheTypeData, describesTheClient ) {
   EXPECT_EQ( sodrelModule.word, 0x00010001U );
   EXPECT_EQ( sodrelModule.types.size(), 1U );
   EXPECT_EQ(
      declaration( sodrelModule, 0 ),
      "Sodrel::Sdbus() : Tessel::Node\n"
      "0 void managerCall(string method, bool async)\n"
      "1 string managerCallSO(string method, string s, bool async)\n"
      "2 string managerCallSsO(string method, string s1, string s2, bool async)\n"
      "3 bool managerPropertyB(string property)\n"
      "4 string managerPropertyS(string property)\n"
      "5 string unitPropertyS(string unit, string property)\n"
      "6 void asyncManagerCall(string method)\n"
      "7 string asyncManagerCallSO(string method, string s)\n"
      "8 string asyncManagerCallSsO(string method, string s1, string s2)\n"
      "9 pointer sdbus()\n"
      "10 pointer rawSdbus\n"
      "11 void handleSdbusCall(s32 ret, pointer sdErr, string errMsg)\n"
      "12 void handleSdbusMessage(pointer sdMsg)\n"
      "13 string handleSdbusMessageO(pointer sdMsg, string errMsg)\n"
      "14 bool handleSdbusMessageB(pointer sdMsg, string errMsg)\n"
      "15 void handleInitialized()\n"
      "16 void handleDeleted()" );
}

TEST_F( TheTypeData, describesTheMonitorsAndTheirRecords ) {
   EXPECT_EQ( monitorModule.word, 0x00010007U );
   EXPECT_EQ( monitorModule.types.size(), 7U );
   const std::array expected{
      "Sodrel::SignalMonitor(pointer rawSdbus) : Tessel::Node\n"
      "0 duration syncTimeout\n"
      "1 bool wait(optional string object)",
      "Sodrel::JobRemovedMonitor::CallbackData() : Tessel::Node\n"
      "0 bool callbackFailed\n"
      "1 u32 jobId\n"
      "2 string result",
      "Sodrel::JobRemovedMonitor(pointer rawSdbus) : Sodrel::SignalMonitor\n"
      "0 Sodrel::JobRemovedMonitor::CallbackData data\n"
      "1 bool isUnitObject(string object)\n"
      "2 u32 parseJobId(string job)\n"
      "3 void handleInitialized()\n"
      "4 void handleDeleted()",
      "Sodrel::DaemonReloadingMonitor::CallbackData() : Tessel::Node\n"
      "0 bool callbackFailed\n"
      "1 bool started\n"
      "2 bool finished",
      "Sodrel::DaemonReloadingMonitor(pointer rawSdbus) : Sodrel::SignalMonitor\n"
      "0 Sodrel::DaemonReloadingMonitor::CallbackData data\n"
      "1 void handleInitialized()\n"
      "2 void handleDeleted()",
      "Sodrel::UnitReloadingMonitor::CallbackData() : Tessel::Node\n"
      "0 bool callbackFailed\n"
      "1 bool started\n"
      "2 bool finished\n"
      "3 bool failed",
      "Sodrel::UnitReloadingMonitor(pointer rawSdbus, string unitPath) : Sodrel::SignalMonitor\n"
      "0 string unitPath\n"
      "1 Sodrel::UnitReloadingMonitor::CallbackData data\n"
      "2 void handleInitialized()\n"
      "3 void handleDeleted()",
   };
   for( std::uint32_t index = 0; index < expected.size(); ++index ) {
      EXPECT_EQ( declaration( monitorModule, index ), expected.at( index ) );
   }
}

TEST_F( TheTypeData, refersToEachBaseAndEntityTypeOnce ) {
   const auto namesOf = []( const ModuleInspectData& module ) {
      std::vector< std::string > names;
      for( const TypeRef& type : module.typeRefs ) {
         names.push_back( nameOf( type ) );
      }
      return names;
   };
   using Names = std::vector< std::string >;
   EXPECT_EQ( namesOf( sodrelModule ), Names{ "Tessel::Node" } );
   EXPECT_EQ(
      namesOf( monitorModule ),
      ( Names{ "Tessel::Node", "Sodrel::SignalMonitor", "Sodrel::JobRemovedMonitor::CallbackData",
               "Sodrel::DaemonReloadingMonitor::CallbackData",
               "Sodrel::UnitReloadingMonitor::CallbackData" } ) );
}

TEST_F( TheTypeData, listsTheNamesInAlphabeticalOrder ) {
   EXPECT_EQ(
      joined( monitorModule.memberNames ),
      "callbackFailed data failed finished jobId object rawSdbus result started syncTimeout "
      "unitPath wait" );
   EXPECT_EQ(
      joined( monitorModule.typeNames ),
      "Sodrel::DaemonReloadingMonitor Sodrel::DaemonReloadingMonitor::CallbackData "
      "Sodrel::JobRemovedMonitor Sodrel::JobRemovedMonitor::CallbackData Sodrel::SignalMonitor "
      "Sodrel::UnitReloadingMonitor Sodrel::UnitReloadingMonitor::CallbackData" );
   EXPECT_EQ( joined( sodrelModule.typeNames ), "Sodrel::Sdbus" );
}

TEST_F( TheTypeData, isFoundByTheNamesOfTheTypes ) {
   EXPECT_EQ( Tessel::findType( "Sodrel::Sdbus" ), ( TypeRef{ &sodrelModule, 0 } ) );
   EXPECT_EQ(
      Tessel::findType( "Sodrel::UnitReloadingMonitor" ), ( TypeRef{ &monitorModule, 6 } ) );
   EXPECT_EQ( Tessel::findType( "Sodrel::Nothing" ), Tessel::nodeType );
}

TEST_F( TheTypeData, isReturnedByEachEntity ) {
   EXPECT_EQ( createdSdbus()->typeData(), ( TypeRef{ &sodrelModule, 0 } ) );
   std::uint32_t index = 1;
   for( const Monitor& kind :
        { jobRemovedMonitor, daemonReloadingMonitor, unitReloadingMonitor } ) {
      const auto monitor = kind.make( bus );
      EXPECT_EQ( kind.dataIs( *monitor )->typeData(), ( TypeRef{ &monitorModule, index++ } ) );
      EXPECT_EQ( monitor->typeData(), ( TypeRef{ &monitorModule, index++ } ) );
   }
}

// A custom monitor, without type data.
class OwnMonitor : public SignalMonitor {
 public:
   explicit OwnMonitor( sd_bus* connection ) : SignalMonitor( connection ) {}
   bool wait( const Orl::Optional< Tessel::String >& ) override { return true; }
};

using AMonitorOfACaller = BusTest;

TEST_F( AMonitorOfACaller, isDescribedAndCountedAsItsBaseAndLeavesItsSlotAlone ) {
   sd_bus_slot* const slot = script.newSlot( { {}, bus, "/a", "an.I", "M", nullptr, nullptr } );
   {
      const auto monitor = Tessel::ptrIsImpl< OwnMonitor >( bus );
      monitor->slotIs( slot );
      EXPECT_EQ( nameOf( monitor->typeData() ), "Sodrel::SignalMonitor" );
      EXPECT_EQ( Orl::allocCounts( "Sodrel::SignalMonitor" )->live, 1U );
      EXPECT_TRUE( monitor->wait( std::nullopt ) );
   }
   EXPECT_EQ( Orl::allocCounts( "Sodrel::SignalMonitor" )->live, 0U );
   EXPECT_EQ( takeLog(), "slabFree( Sodrel::SignalMonitor )" );
   sd_bus_slot_unref( slot );
}

} // namespace

} // namespace SodrelTest
