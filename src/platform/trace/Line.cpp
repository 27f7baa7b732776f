// Composing a line and writing it.
#include <platform/trace/Line.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include <unistd.h>

namespace Tessel::Impl {

namespace {

bool isControl( char c ) {
   return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f;
}

// Whether one of eight characters is.
bool hasControl( const char* eight ) {
   constexpr std::uint64_t ones = 0x0101010101010101;
   constexpr std::uint64_t tops = ones * 0x80;
   std::uint64_t word = 0;
   std::memcpy( &word, eight, sizeof word );
   // A subtraction borrows a character's top bit where the character is less; only the lowest
   // such character is certain, which is enough to know that there is one.
   const std::uint64_t isDelete = word ^ ( ones * 0x7f );
   const std::uint64_t controls = ( word - ones * 0x20 ) & ~word;
   const std::uint64_t deletes = ( isDelete - ones ) & ~isDelete;
   return ( ( controls | deletes ) & tops ) != 0;
}

// Looks at eight characters at a time: nearly every text has none.
bool hasControl( std::string_view text ) {
   constexpr std::size_t step = 8;
   if( text.size() < step ) {
      return std::any_of( text.begin(), text.end(), isControl );
   }
   // The last eight overlap those before.
   const char* const last = text.data() + text.size() - step;
   for( const char* eight = text.data(); eight < last; eight += step ) {
      if( hasControl( eight ) ) {
         return true;
      }
   }
   return hasControl( last );
}

} // namespace

void Line::putEscaped( std::string_view text ) noexcept {
   if( !hasControl( text ) ) {
      put( text );
      return;
   }
   for( const char c : text ) {
      if( isControl( c ) ) {
         constexpr char digits[] = "0123456789abcdef";
         const auto byte = static_cast< unsigned char >( c );
         put( '\\', 'x', digits[byte >> 4], digits[byte & 15] );
      } else {
         put( c );
      }
   }
}

void Line::putWhatFits( std::string_view text ) noexcept {
   const std::string_view kept = text.substr( 0, capacity - size_ );
   cut_ = cut_ || kept.size() != text.size();
   size_ = static_cast< std::size_t >( append( text_ + size_, kept ) - text_ );
}

void Line::putWhatFits( int number ) noexcept {
   char digits[mostDigits];
   putWhatFits( std::string_view( digits, append( digits, number ) ) );
}

void Line::write() noexcept {
   if( cut_ ) {
      size_ += cutMark.copy( text_ + size_, cutMark.size() );
   }
   text_[size_++] = '\n';
   // A line that standard error does not take is lost: there is no better place to say so.
   while( ::write( STDERR_FILENO, text_, size_ ) < 0 && errno == EINTR ) {
   }
}

void report( std::initializer_list< std::string_view > pieces ) noexcept {
   const KeepErrno keepErrno;
   Line line;
   for( const std::string_view piece : pieces ) {
      line.putEscaped( piece );
   }
   line.write();
}

} // namespace Tessel::Impl
