// Lengths of time in unsigned 64-bit nanoseconds, and the exceptions for leaving that range.
#pragma once

#include <platform/Export.h>
#include <platform/value/Exception.h>

#include <compare>
#include <cstdint>

namespace Tessel {

/// Thrown when a length of time would be negative.
class TESSEL_EXPORT NegativeNotAllowed : public Exception {
 public:
   /// Takes the message.
   using Exception::Exception;
   ~NegativeNotAllowed() override;
};

/// Thrown when a length of time exceeds the largest interval.
class TESSEL_EXPORT ArgOutOfRange : public Exception {
 public:
   /// Takes the message.
   using Exception::Exception;
   ~ArgOutOfRange() override;
};

namespace Impl {

struct TPErrors {
   [[noreturn]] TESSEL_EXPORT static void throwNegativeNotAllowed();
   [[noreturn]] TESSEL_EXPORT static void throwArgOutOfRange();
};

} // namespace Impl

/// A length of time, or a point on the steady clock as the time since its epoch, in nanoseconds.
///
/// Differences are taken in double-precision seconds and then truncated to nanoseconds.
class Interval {
 public:
   /// A length of 0.
   constexpr Interval() = default;
   /// A length of this many nanoseconds.
   constexpr explicit Interval( std::uint64_t nanoseconds ) : nanoseconds_( nanoseconds ) {}

   /// Returns 2^64 - 1 nanoseconds.
   static constexpr Interval largest() { return Interval( UINT64_MAX ); }
   /// Reads std::chrono::steady_clock once. Throws NegativeNotAllowed.
   TESSEL_EXPORT static Interval steadyNow();
   /// Truncates to nanoseconds. Throws NegativeNotAllowed, and ArgOutOfRange for NaN and values
   /// above the largest interval.
   TESSEL_EXPORT static Interval fromSeconds( double seconds );

   /// Returns the length in nanoseconds, exactly.
   [[nodiscard]] constexpr std::uint64_t nanoseconds() const { return nanoseconds_; }
   /// Returns the length in seconds, exact to the nanosecond only below about 100 days.
   [[nodiscard]] constexpr double seconds() const {
      return static_cast< double >( nanoseconds_ ) / 1e9;
   }
   /// Returns a number of microseconds that is always longer than the interval and never 0.
   [[nodiscard]] constexpr std::uint64_t microsecondsAbove() const {
      return nanoseconds_ / 1000 + 1;
   }

   /// Subtracts seconds in double precision. Throws as fromSeconds.
   TESSEL_EXPORT friend Interval operator-( Interval left, Interval right );
   /// Compares the lengths.
   // NOLINTNEXTLINE(modernize-use-nullptr): the defaulted comparison's own 0.
   friend constexpr auto operator<=>( Interval left, Interval right ) = default;

 private:
   std::uint64_t nanoseconds_ = 0;
};

} // namespace Tessel
