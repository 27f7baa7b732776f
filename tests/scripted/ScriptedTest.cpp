// What the scripted tests share.
#include <scripted/ScriptedTest.h>

#include <platform/memory/AllocTrack.h>
#include <support/ScriptedMemory.h>

#include <array>
#include <typeinfo>

namespace Sodrel::Test {

namespace {

constexpr std::array facilities{ "Sodrel", "SignalMonitor" };

constexpr std::array entityTypes{
   "Sodrel::Sdbus",
   "Sodrel::JobRemovedMonitor",
   "Sodrel::JobRemovedMonitor::CallbackData",
   "Sodrel::DaemonReloadingMonitor",
   "Sodrel::DaemonReloadingMonitor::CallbackData",
   "Sodrel::UnitReloadingMonitor",
   "Sodrel::UnitReloadingMonitor::CallbackData",
};

constexpr const char* manager =
   "org.freedesktop.systemd1, /org/freedesktop/systemd1, org.freedesktop.systemd1.Manager";

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

std::string probe( const char* bus ) {
   return std::string( "sd_bus_get_property_string( " ) + bus + ", " + manager +
          ", SystemState, null, value )";
}

std::string probed( const char* bus ) {
   return probe( bus ) + "\nfree( running )";
}

std::string managerRead( const char* bus, const char* property ) {
   return std::string( "sd_bus_get_property_string( " ) + bus + ", " + manager + ", " + property +
          ", error, value )";
}

std::string managerCall( const char* bus, const char* method, const char* arguments ) {
   return std::string( "sd_bus_call_method( " ) + bus + ", " + manager + ", " + method +
          ", error, reply, " + arguments + " )";
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

ScriptedTest::ScriptedTest() {
   for( const char* const facility : facilities ) {
      Orl::traceLevelsIs( facility, Orl::allTraceLevels );
   }
   Tessel::traceSinkIs( this );
}

ScriptedTest::~ScriptedTest() {
   Tessel::traceSinkIs( nullptr );
}

void ScriptedTest::TearDown() {
   EXPECT_EQ( script.alive(), leftOpen_ );
   EXPECT_EQ( script.leftOver(), "" ) << "answers that no call has taken";
   EXPECT_EQ( livingEntities(), "" );
}

Tessel::Ptr< Sdbus > ScriptedTest::createdSdbus() {
   Tessel::Ptr< Sdbus > client = sdbusFactory();
   takeLog();
   return client;
}

void ScriptedTest::expectLog(
   std::initializer_list< std::string > lines, const char* file, int line ) {
   std::string expected;
   for( const std::string& part : lines ) {
      expected += ( expected.empty() ? "" : "\n" ) + part;
   }
   const testing::ScopedTrace where( file, line, "" );
   EXPECT_EQ( takeLog(), expected );
}

void ScriptedTest::traceIs( const Tessel::TextTrace& trace ) {
   const NotLibrary notLibrary;
   logLine(
      std::string( trace.facility ) + '/' + std::to_string( trace.level ) + ' ' + trace.function +
      ": " + std::string( trace.text ) );
   EXPECT_EQ( trace.file, std::string( "src/Sodrel/" ) + trace.facility + ".cpp" );
   EXPECT_STREQ( trace.tag, "" );
}

void ClientTest::TearDown() {
   client = nullptr;
   ScriptedTest::TearDown();
}

} // namespace Sodrel::Test
