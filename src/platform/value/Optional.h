// A value that may be absent.
#pragma once

#include <platform/Export.h>

#include <concepts>
#include <optional>
#include <utility>

namespace Orl {

namespace Impl {

// Throws std::bad_optional_access.
[[noreturn]] TESSEL_EXPORT void throwBadOptionalAccess();

} // namespace Impl

/// Holds a T or nothing.
template< typename T >
class Optional {
 public:
   /// Nothing.
   Optional() = default;
   /// Nothing.
   Optional( std::nullopt_t ) {}
   /// Holds the value.
   template< std::convertible_to< T > U >
   Optional( U&& value ) : value_( std::forward< U >( value ) ) {}

   /// Returns whether there is a value.
   [[nodiscard]] bool hasValue() const { return value_.has_value(); }
   /// Returns the value, borrowed. Throws std::bad_optional_access if there is none.
   [[nodiscard]] const T& operator*() const& {
      if( !value_ ) {
         Impl::throwBadOptionalAccess();
      }
      return *value_;
   }
   /// Moves the value out of an expiring optional; otherwise the same.
   [[nodiscard]] T operator*() && {
      if( !value_ ) {
         Impl::throwBadOptionalAccess();
      }
      return *std::move( value_ );
   }
   /// Drops the value; holds nothing afterwards.
   void optionalClearValue() { value_.reset(); }

 private:
   std::optional< T > value_;
};

} // namespace Orl
