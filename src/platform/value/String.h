// The system's string: text with value semantics, and the one way to join pieces of text.
#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <utility>

namespace Tessel {

// A value string. Its data are always NUL-terminated.
//
// Throws std::bad_alloc from whatever has to grow. Thread: as std::string.
class String {
 public:
   String() = default;
   // A null C string is the empty string.
   String( const char* text ) : text_( text ? text : "" ) {}
   // Copies the text.
   String( std::string_view text ) : text_( text ) {}
   // Takes the text over.
   String( std::string text ) : text_( std::move( text ) ) {}

   // Appends and returns the string itself; a string may be appended to itself.
   String& append( std::string_view text ) {
      text_.append( text );
      return *this;
   }
   // A new string: `left` followed by this one.
   [[nodiscard]] String addLeft( std::string_view left ) const;
   // A new string: this one followed by `right`.
   [[nodiscard]] String addRight( std::string_view right ) const;

   // Whether the string begins with `start`.
   [[nodiscard]] bool startsWith( std::string_view start ) const {
      return text_.starts_with( start );
   }
   // Borrowed, valid until the string changes or goes.
   [[nodiscard]] const char* data() const { return text_.c_str(); }
   // Its length in bytes, without the NUL.
   [[nodiscard]] std::size_t size() const { return text_.size(); }
   // Whether its length is 0.
   [[nodiscard]] bool empty() const { return text_.empty(); }

   // Borrowed, as data.
   operator std::string_view() const { return text_; }

   // Whether both have the same bytes.
   template< std::convertible_to< std::string_view > Text >
   friend bool operator==( const String& string, const Text& text ) {
      return string.text_ == std::string_view( text );
   }

   template< std::convertible_to< std::string_view >... Pieces >
   friend String concat( const Pieces&... pieces );

 private:
   String( std::size_t size, char filler ) : text_( size, filler ) {}

   std::string text_;
};

// Joins the pieces in their order, with one allocation at the most. Inlined, so that the sizes of
// literals are known and their copying takes a few instructions.
template< std::convertible_to< std::string_view >... Pieces >
[[gnu::always_inline]] inline String concat( const Pieces&... pieces ) {
   String joined( ( std::size_t{ 0 } + ... + std::string_view( pieces ).size() ), '\0' );
   [[maybe_unused]] char* end = joined.text_.data();
   ( ( end += std::string_view( pieces ).copy( end, std::string_view::npos ) ), ... );
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
