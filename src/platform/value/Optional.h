// A value that may be absent.
#pragma once

#include <platform/Export.h>

#include <optional>
#include <utility>

namespace Orl {

namespace Impl {

// Throws std::bad_optional_access.
[[noreturn]] TESSEL_EXPORT void throwBadOptionalAccess();

} // namespace Impl

/// Holds a T or nothing.
template< typename T >
class Optional : std::optional< T > {
 public:
   /// Has the constructors of std::optional: from nothing, std::nullopt, a value and so on.
   using std::optional< T >::optional;

   /// Returns whether there is a value.
   [[nodiscard]] bool hasValue() const { return this->has_value(); }
   /// Returns the value, borrowed. Throws std::bad_optional_access if there is none.
   [[nodiscard]] const T& operator*() const& {
      if( !hasValue() ) {
         Impl::throwBadOptionalAccess();
      }
      return std::optional< T >::operator*();
   }
   /// Moves the value out of an expiring optional; otherwise the same.
   [[nodiscard]] T operator*() && { return std::move( const_cast< T& >( **this ) ); }
   /// Drops the value; holds nothing afterwards.
   void optionalClearValue() { this->reset(); }
};

} // namespace Orl
