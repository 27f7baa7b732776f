// Lengths of time: their conversions, the ends of their range, and the clock.
#include <platform/value/Interval.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>

using Tessel::Interval;

namespace {

constexpr double largestSeconds = Interval::largest().seconds();

// The clock's reading while one is set.
std::int64_t setReading = 0;
bool readingIsSet = false;

template< typename Error >
std::string textOf( const std::function< void() >& action ) {
   try {
      action();
   } catch( const Error& error ) {
      return error.what();
   }
   return "nothing was thrown";
}

} // namespace

// The linker leads the reading of the clock here.
extern "C" {
std::int64_t __real__ZNSt6chrono3_V212steady_clock3nowEv();

std::int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
   return readingIsSet ? setReading : __real__ZNSt6chrono3_V212steady_clock3nowEv();
}
}

TEST( AnInterval, isZeroByDefault ) {
   EXPECT_EQ( Interval().nanoseconds(), 0U );
   EXPECT_EQ( Interval().seconds(), 0.0 );
}

TEST( AnInterval, keepsEveryNanosecond ) {
   EXPECT_EQ( Interval( 600'000'000'001 ).nanoseconds(), 600'000'000'001U );
   EXPECT_EQ( Interval( 600'000'000'000 ).seconds(), 600.0 );
   EXPECT_EQ( Interval::largest().nanoseconds(), 18446744073709551615U );
}

TEST( AnInterval, truncatesSecondsToNanoseconds ) {
   EXPECT_EQ( Interval::fromSeconds( 0.0 ).nanoseconds(), 0U );
   EXPECT_EQ( Interval::fromSeconds( -0.0 ).nanoseconds(), 0U );
   EXPECT_EQ( Interval::fromSeconds( 1.5 ).nanoseconds(), 1'500'000'000U );
   EXPECT_EQ( Interval::fromSeconds( 0.9e-9 ).nanoseconds(), 0U );
   EXPECT_EQ( Interval::fromSeconds( 1.9e-9 ).nanoseconds(), 1U );
}

TEST( AnInterval, cannotBeNegative ) {
   const double justBelowZero = -std::numeric_limits< double >::denorm_min();
   const std::string text = "a time interval cannot be negative";
   EXPECT_EQ(
      textOf< Tessel::NegativeNotAllowed >( [=] { Interval::fromSeconds( justBelowZero ); } ),
      text );
   EXPECT_EQ(
      textOf< Tessel::NegativeNotAllowed >( [] { Interval( 1 ) - Interval( 1'000'000'000 ); } ),
      text );
   EXPECT_THROW( Interval::fromSeconds( -INFINITY ), Tessel::NegativeNotAllowed );
   EXPECT_EQ(
      textOf< Tessel::NegativeNotAllowed >( &Tessel::Impl::TPErrors::throwNegativeNotAllowed ),
      text );
}

TEST( AnInterval, cannotExceedTheLargest ) {
   const double justAbove = std::nextafter( largestSeconds, INFINITY );
   const std::string text = "a time interval is out of range";
   EXPECT_EQ(
      textOf< Tessel::ArgOutOfRange >( [=] { Interval::fromSeconds( justAbove ); } ), text );
   EXPECT_THROW( Interval::fromSeconds( INFINITY ), Tessel::ArgOutOfRange );
   EXPECT_EQ(
      textOf< Tessel::ArgOutOfRange >( &Tessel::Impl::TPErrors::throwArgOutOfRange ), text );
}

TEST( AnInterval, cannotBeWhatIsNoNumber ) {
   EXPECT_THROW( Interval::fromSeconds( NAN ), Tessel::ArgOutOfRange );
   EXPECT_THROW( Interval::fromSeconds( -NAN ), Tessel::ArgOutOfRange );
}

TEST( AnInterval, isTheLargestAtExactlyItsSeconds ) {
   EXPECT_EQ( largestSeconds, 18446744073.709553 );
   EXPECT_TRUE( Interval::fromSeconds( largestSeconds ) == Interval::largest() );
}

TEST( AnInterval, isBelowTheLargestJustBelowItsSeconds ) {
   const Interval interval = Interval::fromSeconds( std::nextafter( largestSeconds, 0 ) );
   EXPECT_LT( interval.nanoseconds(), Interval::largest().nanoseconds() );
   EXPECT_GT( interval.nanoseconds(), Interval::largest().nanoseconds() - 10'000 );
}

TEST( AnInterval, subtractsInSeconds ) {
   EXPECT_EQ(
      ( Interval( 2'500'000'000 ) - Interval( 1'000'000'000 ) ).nanoseconds(), 1'500'000'000U );
   EXPECT_EQ( ( Interval::largest() - Interval::largest() ).nanoseconds(), 0U );
   EXPECT_TRUE( Interval::largest() - Interval() == Interval::largest() );
   // Double precision tells no nanoseconds apart in a clock that has run for 116 days.
   EXPECT_EQ(
      ( Interval( 10'000'000'000'000'001 ) - Interval( 10'000'000'000'000'000 ) ).nanoseconds(),
      0U );
}

TEST( AnInterval, isOrderedByItsNanoseconds ) {
   EXPECT_TRUE( Interval( 1 ) < Interval( 2 ) );
   EXPECT_TRUE( Interval( 2 ) >= Interval( 2 ) );
   EXPECT_TRUE( Interval( 2 ) == Interval( 2 ) );
   EXPECT_TRUE( Interval( 2 ) != Interval::largest() );
   EXPECT_TRUE( Interval::largest() > Interval( 1ULL << 63 ) );
}

TEST( AnInterval, givesMicrosecondsThatNeverFallShort ) {
   EXPECT_EQ( Interval( 0 ).microsecondsAbove(), 1U );
   EXPECT_EQ( Interval( 999 ).microsecondsAbove(), 1U );
   EXPECT_EQ( Interval( 1000 ).microsecondsAbove(), 2U );
   EXPECT_EQ( Interval( 1999 ).microsecondsAbove(), 2U );
   EXPECT_EQ( Interval( 600'000'000'000 ).microsecondsAbove(), 600'000'001U );
   EXPECT_EQ( Interval::largest().microsecondsAbove(), 18446744073709552U );
}

class ASteadyClock : public testing::Test {
 protected:
   void TearDown() override { readingIsSet = false; }

   static void readingIs( std::int64_t nanoseconds ) {
      setReading = nanoseconds;
      readingIsSet = true;
   }
};

TEST_F( ASteadyClock, isReadInNanoseconds ) {
   readingIs( 1 );
   EXPECT_EQ( Interval::steadyNow().nanoseconds(), 1U );
   readingIs( 0 );
   EXPECT_EQ( Interval::steadyNow().nanoseconds(), 0U );
   readingIs( std::numeric_limits< std::int64_t >::max() );
   EXPECT_EQ( Interval::steadyNow().nanoseconds(), 9223372036854775807U );
}

TEST_F( ASteadyClock, cannotBeNegative ) {
   readingIs( -1 );
   EXPECT_THROW( Interval::steadyNow(), Tessel::NegativeNotAllowed );
}

TEST_F( ASteadyClock, neverGoesBack ) {
   const Interval first = Interval::steadyNow();
   EXPECT_TRUE( Interval::steadyNow() >= first );
}
