// The system's string: text with value semantics, and the only way to join pieces of text.
#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <utility>

namespace Tessel {

/// Text with value semantics. Its data is always NUL-terminated.
///
/// Functions that create or extend a string throw std::bad_alloc. Thread: as std::string.
class String {
 public:
   /// The empty string.
   String() = default;
   /// Copies the text; a null C string becomes the empty string.
   String( const char* text ) : text_( text ? text : "" ) {}
   /// Copies the text.
   String( std::string_view text ) : text_( text ) {}
   /// Takes ownership of the text.
   String( std::string text ) : text_( std::move( text ) ) {}

   /// Makes the string empty.
   void clear() { text_.clear(); }
   /// Appends and returns the string itself; a string may be appended to itself.
   String& append( std::string_view text ) {
      text_.append( text );
      return *this;
   }
   /// Returns a new string: `left` followed by this one.
   [[nodiscard]] String addLeft( std::string_view left ) const;
   /// Returns a new string: this one followed by `right`.
   [[nodiscard]] String addRight( std::string_view right ) const;

   /// Returns whether the string begins with `start`.
   [[nodiscard]] bool startsWith( std::string_view start ) const {
      return text_.starts_with( start );
   }
   /// Returns the NUL-terminated text, borrowed until the string is changed or destroyed.
   [[nodiscard]] const char* data() const { return text_.c_str(); }
   /// Returns the length in bytes, without the NUL.
   [[nodiscard]] std::size_t size() const { return text_.size(); }
   /// Returns whether the length is 0.
   [[nodiscard]] bool empty() const { return text_.empty(); }

   /// The text, borrowed as by data.
   operator std::string_view() const { return text_; }

   /// Returns whether both have the same bytes.
   template< std::convertible_to< std::string_view > Text >
   friend bool operator==( const String& string, const Text& text ) {
      return string.text_ == std::string_view( text );
   }

 private:
   std::string text_;
};

/// Joins the pieces in order, with at most one allocation. Throws std::bad_alloc.
template< std::convertible_to< std::string_view >... Pieces >
String concat( const Pieces&... pieces ) {
   std::string joined;
   joined.reserve( ( std::size_t{ 0 } + ... + std::string_view( pieces ).size() ) );
   ( joined.append( std::string_view( pieces ) ), ... );
   return joined;
}

inline String String::addLeft( std::string_view left ) const {
   return concat( left, text_ );
}

inline String String::addRight( std::string_view right ) const {
   return concat( text_, right );
}

} // namespace Tessel

namespace Orl {

using Tessel::String;

} // namespace Orl
