// Escaping text, and writing lines without the signals that a write can raise.
#include <platform/trace/Line.h>

#include <algorithm>
#include <climits>
#include <ctime>
#include <iterator>
#include <locale>

#include <unistd.h>

namespace Tessel::Impl {

namespace {

using Utf8 = std::codecvt< char32_t, char8_t, std::mbstate_t >;

// Returns the length of the printable UTF-8 character at the start of the text, or 0 if there is
// none. The text must not be empty.
std::size_t printableLength( const Utf8& utf8, std::string_view text ) {
   std::mbstate_t state{};
   const auto* const start = reinterpret_cast< const char8_t* >( text.data() );
   const char8_t* end = nullptr;
   char32_t character{};
   char32_t* converted = nullptr;
   utf8.in( state, start, start + text.size(), end, &character, &character + 1, converted );
   const bool isControl = character < 0x20 || ( character >= 0x7f && character < 0xa0 );
   // Accepted by some versions of the standard library.
   const bool isSurrogate = character >= 0xd800 && character <= 0xdfff;
   return isControl || isSurrogate ? 0 : static_cast< std::size_t >( end - start );
}

} // namespace

void appendEscaped( Line& line, std::string_view text ) {
   const auto& utf8 = std::use_facet< Utf8 >( std::locale::classic() );
   while( !text.empty() ) {
      const std::size_t length = printableLength( utf8, text );
      if( length != 0 ) {
         line.append( text.substr( 0, length ) );
      } else {
         const auto byte = static_cast< unsigned char >( text[0] );
         fmt::format_to( std::back_inserter( line ), "\\x{:02x}", byte );
      }
      text.remove_prefix( std::max< std::size_t >( length, 1 ) );
   }
}

std::string escaped( std::string_view text ) {
   Line line;
   appendEscaped( line, text );
   return fmt::to_string( line );
}

HeldSignal::HeldSignal( int signal ) noexcept {
   sigpending( &signals_ );
   wasPending_ = sigismember( &signals_, signal ) == 1;
   sigemptyset( &signals_ );
   sigaddset( &signals_, signal );
   pthread_sigmask( SIG_BLOCK, &signals_, &mask_ );
}

HeldSignal::~HeldSignal() {
   const KeepErrno keepErrno;
   if( !wasPending_ ) {
      const timespec noTime{};
      sigtimedwait( &signals_, nullptr, &noTime );
   }
   pthread_sigmask( SIG_SETMASK, &mask_, nullptr );
}

void writeLine( Line& line ) {
   constexpr std::string_view cutMark = "...";
   constexpr std::size_t capacity = PIPE_BUF - 1;
   if( line.size() > capacity ) {
      // Cut before the first byte of a character.
      std::size_t end = capacity - cutMark.size();
      while( ( line[end] & 0xc0 ) == 0x80 ) {
         --end;
      }
      line.resize( end );
      line.append( cutMark );
   }
   line.push_back( '\n' );
   const HeldSignal held( SIGPIPE );
   while( ::write( STDERR_FILENO, line.data(), line.size() ) == -1 && errno == EINTR ) {
   }
}

void report( std::string_view text ) {
   const KeepErrno keepErrno;
   Line line;
   appendEscaped( line, text );
   writeLine( line );
}

} // namespace Tessel::Impl
