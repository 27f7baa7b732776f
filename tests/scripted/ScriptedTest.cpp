// The fixtures of the scripted tests.
#include <scripted/ScriptedTest.h>

#include <platform/memory/AllocTrack.h>
#include <support/LibraryTraces.h>
#include <support/Memory.h>

namespace SodrelTest {

namespace {

constexpr const char* entityTypes[] = {
   "Sodrel::Sdbus",
   "Sodrel::JobRemovedMonitor",
   "Sodrel::JobRemovedMonitor::CallbackData",
   "Sodrel::DaemonReloadingMonitor",
   "Sodrel::DaemonReloadingMonitor::CallbackData",
   "Sodrel::UnitReloadingMonitor",
   "Sodrel::UnitReloadingMonitor::CallbackData",
};

template< typename T >
T read( Tessel::Node& entity, std::string_view name ) {
   T value{};
   EXPECT_EQ( Tessel::memberOf( entity, name ).read( entity, &value ), 0 ) << name;
   return value;
}

} // namespace

std::string thrownBy( const std::function< void() >& action ) {
   try {
      action();
   } catch( const Tessel::Exception& exception ) {
      return std::string( exception.name().data() ) + ": " + exception.what();
   } catch( const std::exception& exception ) {
      return exception.what();
   }
   return "nothing";
}

std::string livingEntities() {
   std::string all;
   for( const char* const type : entityTypes ) {
      const auto counts = Orl::allocCounts( type );
      if( counts && counts->live != 0 ) {
         all += std::to_string( counts->live ) + " " + type + " ";
      }
   }
   return all;
}

std::string fieldOf( Tessel::Node& entity, std::string_view name ) {
   switch( Tessel::memberOf( entity, name ).desc().type ) {
   case Tessel::ValueType::boolean:
      return read< bool >( entity, name ) ? "true" : "false";
   case Tessel::ValueType::u32:
      return std::to_string( read< std::uint32_t >( entity, name ) );
   case Tessel::ValueType::duration:
      return std::to_string( read< Tessel::Interval >( entity, name ).nanoseconds() );
   case Tessel::ValueType::string:
      return read< Tessel::String >( entity, name ).data();
   default:
      return "?";
   }
}

std::string fieldsOf( Tessel::Node& entity ) {
   const Tessel::TypeRef type = entity.typeData();
   const Tessel::TypeDesc& desc = type.module->types[type.index];
   std::string all;
   for( const auto& member : type.module->members.subspan( desc.firstMember, desc.memberCount ) ) {
      if( member.kind == Tessel::MemberKind::attribute ) {
         all += all.empty() ? "" : " ";
         all += std::string( member.name ) + "=" + fieldOf( entity, member.name );
      }
   }
   return all;
}

ScriptedTest::ScriptedTest() {
   libraryTraceLevelsAre( Orl::allTraceLevels );
   Tessel::traceSinkIs( this );
}

ScriptedTest::~ScriptedTest() {
   Tessel::traceSinkIs( nullptr );
}

void ScriptedTest::TearDown() {
   EXPECT_EQ( script.alive(), "" );
   EXPECT_EQ( script.leftOver(), "" ) << "answers that no call has taken";
   EXPECT_EQ( livingEntities(), "" );
}

Tessel::Ptr< Sdbus > ScriptedTest::createdSdbus() {
   Tessel::Ptr< Sdbus > client = Sodrel::sdbusFactory();
   takeLog();
   return client;
}

void ScriptedTest::traceIs( const Tessel::TextTrace& trace ) {
   const UnwatchedMemory unwatched;
   logLine(
      std::string( trace.facility ) + '/' + std::to_string( trace.level ) + ' ' + trace.function +
      ": " + std::string( trace.text ) );
   EXPECT_EQ( trace.file, std::string( "src/Sodrel/" ) + trace.facility + ".cpp" );
   EXPECT_STREQ( trace.tag, "" );
   if( onTrace ) {
      onTrace( trace );
   }
}

void ClientTest::TearDown() {
   client = nullptr;
   ScriptedTest::TearDown();
}

void BusTest::TearDown() {
   script.released( bus );
   ScriptedTest::TearDown();
}

} // namespace SodrelTest
