// Reading the steady clock and converting seconds, with their range checks.
#include <platform/value/Interval.h>

#include <chrono>

namespace Tessel {

NegativeNotAllowed::~NegativeNotAllowed() = default;

ArgOutOfRange::~ArgOutOfRange() = default;

void Impl::TPErrors::throwNegativeNotAllowed() {
   throw NegativeNotAllowed( "a time interval cannot be negative" );
}

void Impl::TPErrors::throwArgOutOfRange() {
   throw ArgOutOfRange( "a time interval is out of range" );
}

Interval Interval::steadyNow() {
   const std::int64_t reading =
      std::chrono::nanoseconds( std::chrono::steady_clock::now().time_since_epoch() ).count();
   if( reading < 0 ) {
      Impl::TPErrors::throwNegativeNotAllowed();
   }
   return Interval( static_cast< std::uint64_t >( reading ) );
}

Interval Interval::fromSeconds( double seconds ) {
   constexpr double largestSeconds = largest().seconds();
   if( seconds < 0 ) {
      Impl::TPErrors::throwNegativeNotAllowed();
   }
   // Negated, so that NaN is out of range too.
   if( !( seconds <= largestSeconds ) ) {
      Impl::TPErrors::throwArgOutOfRange();
   }
   if( seconds == largestSeconds ) {
      return largest();
   }
   return Interval( static_cast< std::uint64_t >( seconds * 1e9 ) );
}

Interval operator-( Interval left, Interval right ) {
   return Interval::fromSeconds( left.seconds() - right.seconds() );
}

} // namespace Tessel
