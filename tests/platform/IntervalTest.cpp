// Lengths of time: their conversions, the limits of their range, and the clock.
#include <platform/value/Interval.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

namespace SodrelTest {
namespace {

// The clock's reading, if one is set.
std::optional< std::int64_t > reading;

} // namespace
} // namespace SodrelTest

// The linker uses these names for the function that reads the clock, and for the original.
std::chrono::steady_clock::time_point realNow() asm( "__real_" STEADY_NOW );
std::chrono::steady_clock::time_point wrappedNow() asm( "__wrap_" STEADY_NOW );

std::chrono::steady_clock::time_point wrappedNow() {
   using namespace std::chrono;
   return SodrelTest::reading ? steady_clock::time_point( nanoseconds( *SodrelTest::reading ) )
                              : realNow();
}

namespace SodrelTest {
namespace {

using Tessel::ArgOutOfRange;
using Tessel::Interval;
using Tessel::NegativeNotAllowed;
using testing::ThrowsMessage;
using Errors = Tessel::Impl::TPErrors;

constexpr const char* negativeText = "a time interval cannot be negative";
constexpr const char* rangeText = "a time interval is out of range";
constexpr double largestSeconds = Interval::largest().seconds();

auto reads( double seconds ) {
   return [seconds] { Interval::fromSeconds( seconds ); };
}

TEST( AnInterval, keepsEveryNanosecond ) {
   EXPECT_EQ( Interval().nanoseconds(), 0U );
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
   EXPECT_THAT( reads( justBelowZero ), ThrowsMessage< NegativeNotAllowed >( negativeText ) );
   EXPECT_THAT( reads( -INFINITY ), ThrowsMessage< NegativeNotAllowed >( negativeText ) );
   EXPECT_THAT(
      [] { Interval( 1 ) - Interval( 1'000'000'000 ); },
      ThrowsMessage< NegativeNotAllowed >( negativeText ) );
   EXPECT_THAT(
      &Errors::throwNegativeNotAllowed, ThrowsMessage< NegativeNotAllowed >( negativeText ) );
}

TEST( AnInterval, cannotExceedTheLargestNorBeNan ) {
   const double justAbove = std::nextafter( largestSeconds, INFINITY );
   for( const double seconds : { justAbove, double{ INFINITY }, double{ NAN }, -double{ NAN } } ) {
      EXPECT_THAT( reads( seconds ), ThrowsMessage< ArgOutOfRange >( rangeText ) );
   }
   EXPECT_THAT( &Errors::throwArgOutOfRange, ThrowsMessage< ArgOutOfRange >( rangeText ) );
}

TEST( AnInterval, isTheLargestAtExactlyItsSeconds ) {
   EXPECT_EQ( largestSeconds, 18446744073.709553 );
   EXPECT_TRUE( Interval::fromSeconds( largestSeconds ) == Interval::largest() );
   const Interval below = Interval::fromSeconds( std::nextafter( largestSeconds, 0 ) );
   EXPECT_LT( below.nanoseconds(), Interval::largest().nanoseconds() );
   EXPECT_GT( below.nanoseconds(), Interval::largest().nanoseconds() - 10'000 );
}

TEST( AnInterval, subtractsInSeconds ) {
   EXPECT_EQ(
      ( Interval( 2'500'000'000 ) - Interval( 1'000'000'000 ) ).nanoseconds(), 1'500'000'000U );
   EXPECT_EQ( ( Interval::largest() - Interval::largest() ).nanoseconds(), 0U );
   EXPECT_TRUE( Interval::largest() - Interval() == Interval::largest() );
   // Double precision everywhere, and never more.
   EXPECT_EQ(
      ( Interval( 1'200'000'000 ) - Interval( 1'000'000'000 ) ).nanoseconds(), 199'999'999U );
   EXPECT_EQ(
      ( Interval( 85'200'000'000 ) - Interval( 85'000'000'000 ) ).nanoseconds(), 200'000'000U );
   // Double precision cannot distinguish nanoseconds on a clock that has run for 116 days.
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

TEST( AnInterval, returnsMicrosecondsThatNeverFallShort ) {
   EXPECT_EQ( Interval( 0 ).microsecondsAbove(), 1U );
   EXPECT_EQ( Interval( 999 ).microsecondsAbove(), 1U );
   EXPECT_EQ( Interval( 1000 ).microsecondsAbove(), 2U );
   EXPECT_EQ( Interval( 1999 ).microsecondsAbove(), 2U );
   EXPECT_EQ( Interval( 600'000'000'000 ).microsecondsAbove(), 600'000'001U );
   EXPECT_EQ( Interval::largest().microsecondsAbove(), 18446744073709552U );
}

TEST( ASteadyClock, isReadInNanosecondsAndNeverNegative ) {
   for( const std::int64_t each : { std::int64_t{ 1 }, std::int64_t{ 0 }, INT64_MAX } ) {
      reading = each;
      EXPECT_EQ( Interval::steadyNow().nanoseconds(), static_cast< std::uint64_t >( each ) );
   }
   reading = -1;
   EXPECT_THAT( &Interval::steadyNow, ThrowsMessage< NegativeNotAllowed >( negativeText ) );
   reading.reset();
   const Interval first = Interval::steadyNow();
   EXPECT_TRUE( Interval::steadyNow() >= first );
}

} // namespace
} // namespace SodrelTest
