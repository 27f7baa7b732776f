// Assertions; built with and without NDEBUG, which makes no difference.
#include <platform/value/Assert.h>

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace {

bool evaluated( int& times, bool value ) {
   ++times;
   return value;
}

constexpr int lineOfWatch = __LINE__ + 2;
void watch( int job ) {
   TESSEL_ASSERT( job < 7, "bool House::lit(const Lamp&)" );
}

#define LAMP_IS_LIT false
constexpr int lineOfLight = __LINE__ + 2;
void light() {
   TESSEL_ASSERT( LAMP_IS_LIT, "void light()" );
}

// Matches exactly what a failure leaves on standard error.
std::string wordsFrom( int line, const std::string& functionAndExpression ) {
   return "^tests/platform/AssertTest\\.cpp:" + std::to_string( line ) + ": " +
          functionAndExpression + " failed\\.\n$";
}

} // namespace

TEST( AnAssertion, passesAndEvaluatesItsExpressionOnce ) {
   int times = 0;
   TESSEL_ASSERT( evaluated( times, true ), "void passes()" );
   EXPECT_EQ( times, 1 );
   watch( 6 );
}

TEST( AnAssertion, isOneExpression ) {
   int times = 0;
   const bool other = times == 0 ? TESSEL_ASSERT( evaluated( times, true ), "f" ), true : false;
   EXPECT_TRUE( other );
   EXPECT_EQ( times, 1 );
}

TEST( AFailedAssertion, namesPlaceAndExpressionAndAborts ) {
   EXPECT_EXIT(
      watch( 7 ), testing::KilledBySignal( SIGABRT ),
      wordsFrom( lineOfWatch, "bool House::lit\\(const Lamp&\\): Assertion `job < 7'" ) );
}

TEST( AFailedAssertion, writesTheExpressionAsItStandsInTheSource ) {
   EXPECT_EXIT(
      light(), testing::KilledBySignal( SIGABRT ),
      wordsFrom( lineOfLight, "void light\\(\\): Assertion `LAMP_IS_LIT'" ) );
}

TEST( AFailedAssertion, saysExactlyWhatItIsGiven ) {
   EXPECT_EXIT(
      Tessel::Impl::assertFailed( "src/a%s.cpp", 12, "int f(%d)", "100 % 3 == 0" ),
      testing::KilledBySignal( SIGABRT ),
      "^src/a%s\\.cpp:12: int f\\(%d\\): Assertion `100 % 3 == 0' failed\\.\n$" );
}
