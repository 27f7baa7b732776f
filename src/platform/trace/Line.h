// One line of text in fixed storage, written to standard error in one piece.
#pragma once

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string_view>

namespace Tessel::Impl {

// Gives errno its value back at the end of a scope, so that a trace can stand anywhere.
class KeepErrno {
 public:
   KeepErrno() = default;
   ~KeepErrno() { errno = errno_; }
   KeepErrno( const KeepErrno& ) = delete;
   KeepErrno& operator=( const KeepErrno& ) = delete;

 private:
   int errno_ = errno;
};

// A text of a few characters, copied with all its room: a copy of constant size takes two
// instructions.
struct ShortText {
   char text[16];
   std::size_t size;
};

// A line of at most PIPE_BUF bytes: what every kind of file takes in one piece, so that lines of
// several threads or processes never mix and no lock is needed. A longer line loses its end and
// shows "..." there.
class Line {
 public:
   // Appends texts, characters and numbers as they are. Many at once cost less than one by one.
   template< typename... Pieces >
   void put( const Pieces&... pieces ) noexcept {
      if( ( mostOf( pieces ) + ... ) <= capacity - size_ ) [[likely]] {
         char* to = text_ + size_;
         ( ( to = append( to, pieces ) ), ... );
         size_ = static_cast< std::size_t >( to - text_ );
      } else {
         ( putWhatFits( pieces ), ... );
      }
   }
   // Appends text from elsewhere, with control characters written as \xHH, so that it can neither
   // end the line nor steer a terminal.
   void putEscaped( std::string_view text ) noexcept;
   // Ends the line and writes it with one write.
   void write() noexcept;

 private:
   static constexpr std::string_view cutMark = "...";
   static constexpr std::size_t capacity = PIPE_BUF - cutMark.size() - 1;
   static constexpr std::size_t mostDigits = 11; // of an int, with its sign

   // The most that a piece takes.
   static std::size_t mostOf( std::string_view text ) noexcept { return text.size(); }
   static std::size_t mostOf( const ShortText& text ) noexcept { return sizeof text.text; }
   static std::size_t mostOf( char ) noexcept { return 1; }
   static std::size_t mostOf( int ) noexcept { return mostDigits; }

   // Each gives the place behind what it has appended; there is room.
   static char* append( char* to, std::string_view text ) noexcept {
      std::memcpy( to, text.data(), text.size() );
      return to + text.size();
   }
   static char* append( char* to, const ShortText& text ) noexcept {
      std::memcpy( to, text.text, sizeof text.text );
      return to + text.size;
   }
   static char* append( char* to, char c ) noexcept {
      *to = c;
      return to + 1;
   }
   static char* append( char* to, int number ) noexcept {
      return std::to_chars( to, to + mostDigits, number ).ptr;
   }

   void putWhatFits( std::string_view text ) noexcept;
   void putWhatFits( const ShortText& text ) noexcept {
      putWhatFits( std::string_view( text.text, text.size ) );
   }
   void putWhatFits( char c ) noexcept { putWhatFits( std::string_view( &c, 1 ) ); }
   void putWhatFits( int number ) noexcept;

   std::size_t size_ = 0;
   bool cut_ = false;
   char text_[PIPE_BUF];
};

// Writes the pieces as one line: what the trace facilities have to say about themselves. Leaves
// errno alone.
void report( std::initializer_list< std::string_view > pieces ) noexcept;

} // namespace Tessel::Impl
