// Assertions, which are checked even if NDEBUG is defined.
#ifndef NDEBUG
#define NDEBUG
#endif
#include <platform/value/Assert.h>

#include <support/Abort.h>

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace SodrelTest {
namespace {

bool evaluated( int& times, bool value ) {
   ++times;
   return value;
}

#define LAMP_IS_LIT( lamp ) ( ( lamp ) < 7 )
constexpr int lineOfWatch = __LINE__ + 2;
void watch( int lamp ) {
   TESSEL_ASSERT( LAMP_IS_LIT( lamp ), "bool House::lit(const Lamp&)" );
}

TEST( AnAssertion, isOneExpressionThatEvaluatesItsOwnOnce ) {
   int times = 0;
   const bool other = times == 0 ? TESSEL_ASSERT( evaluated( times, true ), "f" ), true : false;
   EXPECT_TRUE( other );
   EXPECT_EQ( times, 1 );
   watch( 6 );
}

TEST( AFailedAssertion, namesPlaceAndExpressionAsInTheSourceAndAborts ) {
   EXPECT_EXIT(
      watch( 7 ), testing::KilledBySignal( SIGABRT ),
      beforeAbort( testing::ContainsRegex(
         "^tests/platform/AssertTest\\.cpp:" + std::to_string( lineOfWatch ) +
         ": bool House::lit\\(const Lamp&\\): Assertion `LAMP_IS_LIT\\( lamp \\)' "
         "failed\\.\n$" ) ) );
}

TEST( AFailedAssertion, saysExactlyWhatItIsGiven ) {
   EXPECT_EXIT(
      Tessel::Impl::assertFailed( "src/a%s.cpp", 12, "int f(%d)", "100 % 3 == 0" ),
      testing::KilledBySignal( SIGABRT ),
      beforeAbort( testing::ContainsRegex(
         "^src/a%s\\.cpp:12: int f\\(%d\\): Assertion `100 % 3 == 0' failed\\.\n$" ) ) );
}

} // namespace
} // namespace SodrelTest
