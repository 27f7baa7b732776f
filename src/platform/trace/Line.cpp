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

// Looks at eight characters at a time: nearly every text has none.
bool hasControl( std::string_view text ) {
   constexpr std::uint64_t ones = 0x0101010101010101;
   constexpr std::uint64_t tops = ones * 0x80;
   std::size_t at = 0;
   for( ; at + sizeof( std::uint64_t ) <= text.size(); at += sizeof( std::uint64_t ) ) {
      std::uint64_t word = 0;
      std::memcpy( &word, text.data() + at, sizeof word );
      // A subtraction borrows a character's top bit where the character is less; only the lowest
      // such character is certain, which is enough to know that there is one.
      const std::uint64_t isDelete = word ^ ( ones * 0x7f );
      const std::uint64_t controls = ( word - ones * 0x20 ) & ~word;
      const std::uint64_t deletes = ( isDelete - ones ) & ~isDelete;
      if( ( ( controls | deletes ) & tops ) != 0 ) {
         return true;
      }
   }
   return std::any_of( text.begin() + static_cast< std::ptrdiff_t >( at ), text.end(), isControl );
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
