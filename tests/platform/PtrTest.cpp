// The counted pointer: which one owns which use, for every way from one pointer to another.
#include "Instruments.h"

#include <platform/entity/Ptr.h>
#include <platform/memory/AllocTrack.h>

#include <gtest/gtest.h>

#include <concepts>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace SodrelTest {
namespace {

using Tessel::Ptr;

static_assert( sizeof( Ptr< Gauge > ) == sizeof( Gauge* ) );
static_assert( std::is_nothrow_move_constructible_v< Ptr< Gauge > > );
static_assert( std::is_nothrow_destructible_v< Ptr< Gauge > > );
static_assert( std::convertible_to< Ptr< Gauge >, Ptr< Instrument > > );
static_assert( !std::constructible_from< Ptr< Gauge >, Ptr< Instrument > > );
static_assert( !std::convertible_to< Gauge*, Ptr< Gauge > > );
static_assert( !std::convertible_to< Ptr< Gauge >, bool > );

class APtr : public testing::Test {
 protected:
   void TearDown() override {
      gauge = nullptr;
      EXPECT_EQ( Orl::allocCounts( "SodrelTest::Gauge" )->live, 0U );
   }

   static bool isAlive() { return Orl::allocCounts( "SodrelTest::Gauge" )->live == 1; }

   Ptr< Gauge > gauge = gaugeFactory( "bar", {} );
   // Borrowed, to read the count.
   Gauge* const raw = gauge.get();
};

TEST_F( APtr, isNullByDefaultAndFromNullptr ) {
   EXPECT_EQ( Ptr< Gauge >().get(), nullptr );
   EXPECT_EQ( Ptr< Gauge >( nullptr ).get(), nullptr );
   EXPECT_FALSE( Ptr< Gauge >() );
   EXPECT_EQ( Ptr< Gauge >( static_cast< Gauge* >( nullptr ) ).get(), nullptr );
}

TEST_F( APtr, leadsToItsEntityAndAddsAUseToARawPointer ) {
   EXPECT_TRUE( gauge );
   EXPECT_EQ( &*gauge, raw );
   EXPECT_EQ( gauge->measure(), 100U );
   EXPECT_EQ( raw->useCount(), 1U );
   const Ptr< Gauge > second( raw );
   EXPECT_EQ( raw->useCount(), 2U );
}

TEST_F( APtr, addsAUseWhenItIsCopied ) {
   {
      const Ptr< Gauge > copy = gauge;
      EXPECT_EQ( copy.get(), raw );
      EXPECT_EQ( raw->useCount(), 2U );
   }
   EXPECT_EQ( raw->useCount(), 1U );
   const Ptr< Gauge > null;
   const Ptr< Gauge > copyOfNull = null;
   EXPECT_FALSE( copyOfNull );
}

TEST_F( APtr, handsItsUseOverWhenItIsMoved ) {
   const Ptr< Gauge > moved = std::move( gauge );
   EXPECT_EQ( moved.get(), raw );
   EXPECT_FALSE( gauge );
   EXPECT_EQ( raw->useCount(), 1U );
}

TEST_F( APtr, convertsToABase ) {
   {
      const Ptr< Instrument > copy = gauge;
      EXPECT_EQ( copy.get(), raw );
      EXPECT_EQ( raw->useCount(), 2U );
   }
   Ptr< Tessel::Node > moved = std::move( gauge );
   EXPECT_EQ( moved.get(), raw );
   EXPECT_FALSE( gauge );
   EXPECT_EQ( raw->useCount(), 1U );
   moved = nullptr;
   EXPECT_FALSE( isAlive() );
}

TEST_F( APtr, dropsTheUseItHadWhenItIsAssigned ) {
   Ptr< Gauge > other = gaugeFactory( "volt", {} );
   Gauge* const rawOther = other.get();
   const Ptr< Gauge > keepsOther = other;
   other = gauge;
   EXPECT_EQ( rawOther->useCount(), 1U );
   EXPECT_EQ( raw->useCount(), 2U );
   other = std::move( gauge );
   EXPECT_EQ( raw->useCount(), 1U );
   EXPECT_EQ( other.get(), raw );
   EXPECT_FALSE( gauge );
   Ptr< Instrument > base;
   base = other;
   EXPECT_EQ( raw->useCount(), 2U );
   base = nullptr;
   EXPECT_EQ( raw->useCount(), 1U );
}

TEST_F( APtr, survivesAssignmentToItself ) {
   Ptr< Gauge >& itself = gauge;
   gauge = itself;
   EXPECT_EQ( gauge.get(), raw );
   EXPECT_EQ( raw->useCount(), 1U );
   gauge = std::move( itself );
   EXPECT_EQ( gauge.get(), raw );
   EXPECT_EQ( raw->useCount(), 1U );
}

TEST_F( APtr, survivesAssignmentOfAPointerThatItsEntityOwns ) {
   struct Chained : public Tessel::Node {
      Ptr< Chained > next;
   };
   auto first = Ptr< Chained >::adopt( new Chained );
   first->next = Ptr< Chained >::adopt( new Chained );
   Chained* const rawNext = first->next.get();
   first = first->next;
   EXPECT_EQ( first.get(), rawNext );
   EXPECT_EQ( rawNext->useCount(), 1U );
}

TEST_F( APtr, takesAUseOverAndHandsItBack ) {
   Gauge* const released = gauge.release();
   EXPECT_EQ( released, raw );
   EXPECT_FALSE( gauge );
   EXPECT_EQ( raw->useCount(), 1U );
   gauge = Ptr< Gauge >::adopt( released );
   EXPECT_EQ( raw->useCount(), 1U );
   EXPECT_FALSE( Ptr< Gauge >::adopt( nullptr ) );
   EXPECT_EQ( Ptr< Gauge >().release(), nullptr );
}

TEST_F( APtr, destroysTheEntityWithTheLastUse ) {
   Ptr< Gauge > second = gauge;
   gauge = nullptr;
   EXPECT_TRUE( isAlive() );
   second = nullptr;
   EXPECT_FALSE( isAlive() );
}

TEST_F( APtr, equalsThePointersToItsEntity ) {
   const Ptr< Gauge > same = gauge;
   const Ptr< Gauge > other = gaugeFactory( "volt", {} );
   EXPECT_TRUE( gauge == same );
   EXPECT_TRUE( gauge != other );
   EXPECT_TRUE( gauge != nullptr );
   EXPECT_TRUE( Ptr< Gauge >() == nullptr );
}

} // namespace
} // namespace SodrelTest
