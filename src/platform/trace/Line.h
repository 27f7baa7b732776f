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

// A line of at most PIPE_BUF bytes: what every kind of file takes in one piece, so that lines of
// several threads or processes never mix and no lock is needed. A longer line loses its end and
// shows "..." there.
class Line {
 public:
   // Appends texts, characters and numbers as they are. Many at once cost less than one by one.
   template< typename... Pieces >
   void put( const Pieces&... pieces ) noexcept {
      char* to = text_ + size_;
      ( ( to = append( to, pieces ) ), ... );
      size_ = static_cast< std::size_t >( to - text_ );
   }
   // Appends text from elsewhere, with control characters written as \xHH, so that it can neither
   // end the line nor steer a terminal.
   void putEscaped( std::string_view text ) noexcept;
   // Ends the line and writes it with one write.
   void write() noexcept;

 private:
   static constexpr std::string_view cutMark = "...";
   static constexpr std::size_t capacity = PIPE_BUF - cutMark.size() - 1;

   // Each gives the place behind what it has appended.
   char* append( char* to, std::string_view text ) noexcept {
      const auto room = static_cast< std::size_t >( text_ + capacity - to );
      if( text.size() > room ) [[unlikely]] {
         cut_ = true;
         text = text.substr( 0, room );
      }
      std::memcpy( to, text.data(), text.size() );
      return to + text.size();
   }
   char* append( char* to, char c ) noexcept { return append( to, std::string_view( &c, 1 ) ); }
   char* append( char* to, int number ) noexcept {
      char digits[12];
      const auto end = std::to_chars( digits, std::end( digits ), number ).ptr;
      return append( to, std::string_view( digits, end ) );
   }

   std::size_t size_ = 0;
   bool cut_ = false;
   char text_[PIPE_BUF];
};

// Writes the pieces as one line: what the trace facilities have to say about themselves. Leaves
// errno alone.
void report( std::initializer_list< std::string_view > pieces ) noexcept;

} // namespace Tessel::Impl
