// Parts of the binary interface that scripts/abi does not check: the order of the virtual slots
// before any baseline, and the sizes of classes that no exported function takes or returns.
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <platform/value/VoidPtr.h>
#include <support/Slots.h>

#include <cstddef>
#include <gtest/gtest.h>

namespace SodrelTest {
namespace {

// A class with one more operation, whose slot is the number of Base's operations.
template< typename Base >
struct Extended : Base {
   virtual void further() = 0;
};

template< typename Base >
std::size_t slotsOf() {
   return slotOf( &Extended< Base >::further );
}

TEST( TheSlots, ofANodeAreInTheirOrder ) {
   EXPECT_EQ( slotOf( &Tessel::Node::lastUserGone ), 2 );
   EXPECT_EQ( slotOf( &Tessel::Node::publisher ), 3 );
   EXPECT_EQ( slotOf( &Tessel::Node::typeData ), 4 );
   EXPECT_EQ( slotsOf< Tessel::Node >(), 5 );
}

TEST( TheSlots, ofTheClientAndOfTheRecordsAreThoseOfANode ) {
   EXPECT_EQ( slotsOf< Sodrel::Sdbus >(), 5 );
   EXPECT_EQ( slotsOf< Sodrel::JobRemovedMonitor::CallbackData >(), 5 );
   EXPECT_EQ( slotsOf< Sodrel::DaemonReloadingMonitor::CallbackData >(), 5 );
   EXPECT_EQ( slotsOf< Sodrel::UnitReloadingMonitor::CallbackData >(), 5 );
}

TEST( TheSlots, ofEachMonitorEndWithItsWait ) {
   EXPECT_EQ( slotOf( &Sodrel::SignalMonitor::wait ), 5 );
   EXPECT_EQ( slotOf( &Sodrel::JobRemovedMonitor::wait ), 5 );
   EXPECT_EQ( slotOf( &Sodrel::DaemonReloadingMonitor::wait ), 5 );
   EXPECT_EQ( slotOf( &Sodrel::UnitReloadingMonitor::wait ), 5 );
   EXPECT_EQ( slotsOf< Sodrel::SignalMonitor >(), 6 );
   EXPECT_EQ( slotsOf< Sodrel::JobRemovedMonitor >(), 6 );
   EXPECT_EQ( slotsOf< Sodrel::DaemonReloadingMonitor >(), 6 );
   EXPECT_EQ( slotsOf< Sodrel::UnitReloadingMonitor >(), 6 );
}

TEST( TheSlots, ofAnExceptionEndWithItsTextAndItsName ) {
   EXPECT_EQ( slotOf( &Tessel::Exception::what ), 2 );
   EXPECT_EQ( slotOf( &Tessel::Exception::name ), 3 );
   EXPECT_EQ( slotsOf< Tessel::Exception >(), 4 );
   EXPECT_EQ( slotsOf< Tessel::NegativeNotAllowed >(), 4 );
   EXPECT_EQ( slotsOf< Tessel::ArgOutOfRange >(), 4 );
   EXPECT_EQ( slotsOf< Sodrel::Exception >(), 4 );
   EXPECT_EQ( slotsOf< Sodrel::NoSdbusException >(), 4 );
   EXPECT_EQ( slotsOf< Sodrel::SdbusCallException >(), 4 );
   EXPECT_EQ( slotsOf< Sodrel::SdbusMessageException >(), 4 );
   EXPECT_EQ( slotsOf< Sodrel::SdbusSyncException >(), 4 );
   EXPECT_EQ( slotsOf< Sodrel::SdbusJobException >(), 4 );
}

TEST( TheSize, ofAnExceptionIsThatOfTheBase ) {
   EXPECT_EQ( sizeof( Tessel::Exception ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Tessel::NegativeNotAllowed ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Tessel::ArgOutOfRange ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Sodrel::Exception ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Sodrel::NoSdbusException ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Sodrel::SdbusCallException ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Sodrel::SdbusMessageException ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Sodrel::SdbusSyncException ), 3 * sizeof( void* ) );
   EXPECT_EQ( sizeof( Sodrel::SdbusJobException ), 3 * sizeof( void* ) );
}

TEST( TheSize, ofAPointerIsThatOfABareOne ) {
   EXPECT_EQ( sizeof( Tessel::Ptr< Tessel::Node > ), sizeof( void* ) );
   EXPECT_EQ( sizeof( Orl::VoidPtr ), sizeof( void* ) );
}

TEST( TheModuleRecord, containsItsFormatAndTheNumberOfTypes ) {
   EXPECT_EQ( _Sodrel_c4788d5e_orlModule.word, 0x00010001 );
   EXPECT_EQ( _SignalMonitor_178310f1_orlModule.word, 0x00010007 );
}

} // namespace
} // namespace SodrelTest
