// Escaping text, and writing lines without the signals that a write can raise.
#include <platform/trace/Line.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <ctime>
#include <iterator>

#include <unistd.h>

namespace Tessel::Impl {

namespace {

// Returns the length of the printable UTF-8 character at the start of the text, or 0 if there is
// none. The text must not be empty.
std::size_t printableLength( std::string_view text ) {
   const auto byte = [&]( std::size_t at ) { return static_cast< unsigned char >( text[at] ); };
   constexpr std::uint32_t least[] = { 0, 0x80, 0x800, 0x10000 }; // by length
   // One for each byte of the character; none if it has a single byte.
   const auto ones = static_cast< std::size_t >( std::countl_one( byte( 0 ) ) );
   const std::size_t length = std::max< std::size_t >( ones, 1 );
   if( ones == 1 || length > std::size( least ) || length > text.size() ) {
      return 0;
   }
   std::uint32_t character = byte( 0 ) & ( 0xffU >> ones );
   for( std::size_t at = 1; at < length; ++at ) {
      const std::uint32_t bits = byte( at ) - 0x80U;
      if( bits > 0x3f ) {
         return 0;
      }
      character = character << 6 | bits;
   }
   const bool isValid = character >= least[length - 1] && character <= 0x10ffff &&
                        ( character < 0xd800 || character > 0xdfff );
   const bool isControl = character < 0x20 || ( character >= 0x7f && character < 0xa0 );
   return isValid && !isControl ? length : 0;
}

} // namespace

void appendEscaped( Line& line, std::string_view text ) {
   while( !text.empty() ) {
      const std::size_t length = printableLength( text );
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
