// The order of the virtual slots, which programs are compiled against.
#include <abi/Vtables.h>

#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::_;
using testing::AnyOf;
using testing::ElementsAre;

std::vector< std::string > entitySlots( const std::string& qualifiedClass ) {
   return {
      "destructor",
      "deleting destructor",
      "Tessel::Node::lastUserGone()",
      "Tessel::Node::publisher()",
      qualifiedClass + "::typeData() const",
   };
}

std::vector< std::string > monitorSlots( const std::string& qualifiedClass ) {
   std::vector< std::string > slots = entitySlots( qualifiedClass );
   slots.push_back( qualifiedClass + "::wait(Orl::Optional<Tessel::String> const&)" );
   return slots;
}

TEST( TheVtable, ofANodeStartsWithItsDestructors ) {
   EXPECT_THAT(
      virtualSlots( "N6Tessel4NodeE" ),
      ElementsAre(
         "inline", "inline", "Tessel::Node::lastUserGone()", "Tessel::Node::publisher()",
         "Tessel::Node::typeData() const" ) );
}

TEST( TheVtable, ofTheClientIsThatOfANode ) {
   EXPECT_EQ( virtualSlots( "N6Sodrel5SdbusE" ), entitySlots( "Sodrel::Sdbus" ) );
}

TEST( TheVtable, ofASignalMonitorAddsAPureWait ) {
   // What stands for the destructors of an abstract class is the compiler's choice.
   EXPECT_THAT(
      virtualSlots( "N6Sodrel13SignalMonitorE" ),
      ElementsAre(
         _, _, "Tessel::Node::lastUserGone()", "Tessel::Node::publisher()",
         "Sodrel::SignalMonitor::typeData() const", "pure" ) );
}

TEST( TheVtable, ofEachMonitorHasItsOwnWait ) {
   EXPECT_EQ(
      virtualSlots( "N6Sodrel17JobRemovedMonitorE" ), monitorSlots( "Sodrel::JobRemovedMonitor" ) );
   EXPECT_EQ(
      virtualSlots( "N6Sodrel22DaemonReloadingMonitorE" ),
      monitorSlots( "Sodrel::DaemonReloadingMonitor" ) );
   EXPECT_EQ(
      virtualSlots( "N6Sodrel20UnitReloadingMonitorE" ),
      monitorSlots( "Sodrel::UnitReloadingMonitor" ) );
}

TEST( TheVtable, ofEachRecordIsThatOfANode ) {
   EXPECT_EQ(
      virtualSlots( "N6Sodrel17JobRemovedMonitor12CallbackDataE" ),
      entitySlots( "Sodrel::JobRemovedMonitor::CallbackData" ) );
   EXPECT_EQ(
      virtualSlots( "N6Sodrel22DaemonReloadingMonitor12CallbackDataE" ),
      entitySlots( "Sodrel::DaemonReloadingMonitor::CallbackData" ) );
   EXPECT_EQ(
      virtualSlots( "N6Sodrel20UnitReloadingMonitor12CallbackDataE" ),
      entitySlots( "Sodrel::UnitReloadingMonitor::CallbackData" ) );
}

TEST( TheVtable, ofAnExceptionEndsWithItsTextAndItsName ) {
   for( const char* exported :
        { "N6Tessel9ExceptionE", "N6Tessel18NegativeNotAllowedE", "N6Tessel13ArgOutOfRangeE" } ) {
      EXPECT_THAT(
         virtualSlots( exported ),
         ElementsAre(
            "destructor", "deleting destructor", "Tessel::Exception::what() const",
            "Tessel::Exception::name() const" ) )
         << exported;
   }
   for( const char* defined :
        { "N6Sodrel9ExceptionE", "N6Sodrel16NoSdbusExceptionE", "N6Sodrel18SdbusCallExceptionE",
          "N6Sodrel21SdbusMessageExceptionE", "N6Sodrel18SdbusSyncExceptionE",
          "N6Sodrel17SdbusJobExceptionE" } ) {
      // The base's destructor does as well, and some compilers know.
      EXPECT_THAT(
         virtualSlots( defined ),
         ElementsAre(
            AnyOf( "inline", "destructor" ), "inline", "Tessel::Exception::what() const",
            "Tessel::Exception::name() const" ) )
         << defined;
   }
}

} // namespace
