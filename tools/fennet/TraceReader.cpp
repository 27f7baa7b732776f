// Checking and taking apart the header, the descriptions and the records.
#include "TraceReader.h"

#include <platform/trace/Placeholders.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <system_error>
#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Fennet {

namespace {

[[noreturn]] void damaged( std::uint64_t place, const std::string& what ) {
   throw Damage( "at byte " + std::to_string( place ) + ": " + what );
}

// Takes values off the front of some bytes; nothing where too few are left.
class Bytes {
 public:
   explicit Bytes( std::string_view bytes ) : bytes_( bytes ) {}

   [[nodiscard]] bool empty() const { return bytes_.empty(); }

   template< typename Value >
   std::optional< Value > take() {
      static_assert( std::is_trivially_copyable_v< Value > );
      if( bytes_.size() < sizeof( Value ) ) {
         return std::nullopt;
      }
      Value value;
      std::memcpy( &value, bytes_.data(), sizeof value );
      bytes_.remove_prefix( sizeof value );
      return value;
   }

   std::optional< std::string_view > takeText( std::size_t size ) {
      if( bytes_.size() < size ) {
         return std::nullopt;
      }
      const std::string_view text = bytes_.substr( 0, size );
      bytes_.remove_prefix( size );
      return text;
   }

   std::optional< std::string_view > takeText() {
      const auto size = take< std::uint16_t >();
      return size ? takeText( *size ) : std::nullopt;
   }

 private:
   std::string_view bytes_;
};

std::string textOf( const char* raw, std::size_t offset, std::size_t size ) {
   return { raw + offset, std::find( raw + offset, raw + offset + size, '\0' ) };
}

template< typename Value, typename As = Value >
std::optional< Argument > takeNumber( Bytes& bytes ) {
   const auto value = bytes.take< Value >();
   return value ? std::optional< Argument >( As{ *value } ) : std::nullopt;
}

std::optional< Argument > takeArgument( Bytes& bytes, std::string_view code, bool& cut ) {
   if( code == "p" ) {
      const auto length = bytes.take< std::uint16_t >();
      const auto text = length ? bytes.takeText( *length & ~cutString ) : std::nullopt;
      if( !text ) {
         return std::nullopt;
      }
      const bool textIsCut = ( *length & cutString ) != 0;
      cut |= textIsCut;
      return std::string( *text ) + ( textIsCut ? "..." : "" );
   }
   if( code == "b" ) {
      const auto byte = bytes.take< std::uint8_t >();
      return byte ? std::optional< Argument >( *byte != 0 ) : std::nullopt;
   }
   if( code == "si" ) {
      return takeNumber< std::int32_t, std::int64_t >( bytes );
   }
   if( code == "ui" ) {
      return takeNumber< std::uint32_t, std::uint64_t >( bytes );
   }
   if( code == "sl" ) {
      return takeNumber< std::int64_t >( bytes );
   }
   return takeNumber< std::uint64_t >( bytes );
}

bool isCode( std::string_view word ) {
   constexpr std::string_view codes[] = { "p", "b", "si", "ui", "sl", "ul" };
   return std::find( std::begin( codes ), std::end( codes ), word ) != std::end( codes );
}

std::vector< std::string > parseCodes( std::string_view text, std::uint64_t place ) {
   std::vector< std::string > codes;
   while( !text.empty() ) {
      const std::string_view word = text.substr( 0, text.find( ' ' ) );
      if( !isCode( word ) ) {
         damaged( place, "a description has an unknown argument code" );
      }
      codes.emplace_back( word );
      text.remove_prefix( std::min( text.size(), word.size() + 1 ) );
   }
   return codes;
}

Description
parseDescription( const DescriptionHead& head, std::string_view body, std::uint64_t place ) {
   Bytes bytes( body );
   std::string_view texts[descriptionStrings];
   for( std::string_view& text : texts ) {
      const auto taken = bytes.takeText();
      if( !taken ) {
         damaged( place, "a description ends within its texts" );
      }
      text = *taken;
   }
   const auto& [sourceFile, codes, tag, function, format, facility] = texts;
   Description description;
   description.line = head.line;
   description.level = head.level;
   description.sourceFile = sourceFile;
   description.codes = parseCodes( codes, place );
   description.tag = tag;
   description.function = function;
   description.format = format;
   description.facility = facility;
   const int wanted = Tessel::placeholders( format );
   if( wanted < 0 || static_cast< std::size_t >( wanted ) != description.codes.size() ) {
      damaged( place, "a description's format does not fit its arguments" );
   }
   return description;
}

} // namespace

ReadAt bytesOf( const std::string& path ) {
   const int fd = open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK );
   if( fd < 0 ) {
      throw std::system_error( errno, std::generic_category(), path );
   }
   const std::shared_ptr< void > owner( nullptr, [fd]( void* ) { close( fd ); } );
   return [fd, owner, path]( std::uint64_t offset, char* to, std::size_t size ) {
      std::size_t done = 0;
      while( done < size ) {
         const ssize_t got = pread( fd, to + done, size - done, off_t( offset + done ) );
         if( got < 0 ) {
            throw std::system_error( errno, std::generic_category(), path );
         }
         if( got == 0 ) {
            break;
         }
         done += static_cast< std::size_t >( got );
      }
      return done;
   };
}

TraceReader::TraceReader( ReadAt readAt ) : readAt_( std::move( readAt ) ) {}

std::string TraceReader::readExactly( std::uint64_t offset, std::uint64_t size ) {
   // The last byte first: a file that only claims a size must not cost its memory.
   char last = 0;
   if( size > 0 && readAt_( offset + size - 1, &last, 1 ) != 1 ) {
      damaged( offset, "the file is too short" );
   }
   std::string bytes( size, '\0' );
   if( readAt_( offset, bytes.data(), size ) != size ) {
      damaged( offset, "the file is too short" );
   }
   return bytes;
}

// False while the file has not begun.
bool TraceReader::readHeader( State& state ) {
   char raw[sizeof( FileHeader )] = {};
   const std::size_t size = readAt_( 0, raw, sizeof raw );
   const std::string_view bytes( raw, sizeof raw );
   const auto field = [&]( std::size_t offset, auto like ) {
      return *Bytes( bytes.substr( offset ) ).take< decltype( like ) >();
   };
   const auto magic = field( offsetof( FileHeader, magic ), std::uint64_t{} );
   if( magic == 0 ) {
      return false;
   }
   if( magic != fileMagic ) {
      damaged( 0, "this is no trace file of a machine like this one" );
   }
   if( size != sizeof raw ) {
      damaged( size, "the file is too short" );
   }
   state.tail = field( offsetof( FileHeader, tail ), std::uint64_t{} );
   state.end = field( offsetof( FileHeader, end ), std::uint64_t{} );
   state.descriptionsSize = field( offsetof( FileHeader, descriptionsSize ), std::uint64_t{} );
   const auto clockPairs = field( offsetof( FileHeader, clockPairs ), std::uint64_t{} );
   clocks_ =
      field( offsetof( FileHeader, clocks ) + clockPairs % 2 * sizeof( ClockPair ), ClockPair{} );
   if( begun() ) {
      return true;
   }

   if( field( offsetof( FileHeader, headerSize ), std::uint32_t{} ) != headerSize ) {
      damaged( offsetof( FileHeader, headerSize ), "invalid header size" );
   }
   const auto ringSize = field( offsetof( FileHeader, ringSize ), std::uint32_t{} );
   if( ringSize < minRingSize || ringSize > maxRingSize || !std::has_single_bit( ringSize ) ) {
      damaged( offsetof( FileHeader, ringSize ), "invalid ring size" );
   }
   ringSize_ = ringSize;
   origin_.pid = field( offsetof( FileHeader, pid ), std::int32_t{} );
   origin_.tid = field( offsetof( FileHeader, tid ), std::int32_t{} );
   origin_.bootId = textOf( raw, offsetof( FileHeader, bootId ), sizeof( FileHeader::bootId ) );
   origin_.program = textOf( raw, offsetof( FileHeader, program ), sizeof( FileHeader::program ) );
   return true;
}

void TraceReader::readDescriptions( std::uint64_t size ) {
   if( size < descriptionsRead_ || size > maxDescriptionsSize ) {
      damaged( offsetof( FileHeader, descriptionsSize ), "invalid size of the descriptions" );
   }
   std::uint64_t place = headerSize + std::uint64_t{ ringSize_ } + descriptionsRead_;
   const std::string raw = readExactly( place, size - descriptionsRead_ );
   Bytes bytes( raw );
   while( !bytes.empty() ) {
      const auto head = bytes.take< DescriptionHead >();
      const auto body = head && head->size >= sizeof *head
                           ? bytes.takeText( head->size - sizeof *head )
                           : std::nullopt;
      if( !body ) {
         damaged( place, "a description has an impossible size" );
      }
      if( head->msgId <= 0 ) {
         damaged( place, "a description has an impossible id" );
      }
      descriptions_[head->msgId] =
         std::make_shared< const Description >( parseDescription( *head, *body, place ) );
      place += head->size;
   }
   descriptionsRead_ = size;
}

std::string TraceReader::readRing( std::uint64_t from, std::uint64_t to ) {
   const std::uint64_t start = from % ringSize_;
   const std::uint64_t untilWrap = std::min< std::uint64_t >( to - from, ringSize_ - start );
   return readExactly( headerSize + start, untilWrap ) +
          readExactly( headerSize, to - from - untilWrap );
}

Record TraceReader::parseRecord( std::string_view raw, std::uint64_t place ) const {
   Bytes bytes( raw );
   const RecordHead head = *bytes.take< RecordHead >();
   const auto description = descriptions_.find( head.msgId );
   if( description == descriptions_.end() ) {
      damaged( place, "a record has the unknown message id " + std::to_string( head.msgId ) );
   }
   Record record{ head.time, description->second, {}, false };
   for( const std::string& code : description->second->codes ) {
      if( bytes.empty() ) {
         record.cut = true;
         break;
      }
      auto argument = takeArgument( bytes, code, record.cut );
      if( !argument ) {
         damaged( place, "a record ends within an argument" );
      }
      record.arguments.push_back( *std::move( argument ) );
   }
   if( !bytes.empty() ) {
      damaged( place, "a record is longer than its arguments" );
   }
   return record;
}

void TraceReader::read( const std::function< void( Record ) >& take ) {
   State before;
   if( !readHeader( before ) ) {
      return;
   }
   const auto check = []( const State& state, std::uint64_t ringSize ) {
      if( state.tail > state.end || state.end - state.tail > ringSize ||
          state.tail % recordAlignment != 0 || state.end % recordAlignment != 0 ) {
         damaged( offsetof( FileHeader, tail ), "inconsistent positions" );
      }
   };
   check( before, ringSize_ );
   std::uint64_t from = std::max( position_, before.tail );
   if( from > before.end ) {
      damaged( offsetof( FileHeader, end ), "end moved backwards" );
   }
   const std::string ring = readRing( from, before.end );

   // The process may have gone on while the ring was read. What it may have overwritten lies before
   // the tail as it is now, and what it has described in between may be needed.
   State after;
   readHeader( after );
   check( after, ringSize_ );
   readDescriptions( after.descriptionsSize );
   const std::uint64_t start = from;
   from = std::min( std::max( from, after.tail ), before.end );

   for( from = recordStart( from, ringSize_ ); from < before.end;
        from = recordStart( from, ringSize_ ) ) {
      const std::uint64_t place = headerSize + from % ringSize_;
      const std::string_view rest = std::string_view( ring ).substr( from - start );
      const auto head = Bytes( rest ).take< RecordHead >();
      if( !head || head->size < sizeof *head || head->size > maxRecordSize ||
          alignedSize( head->size ) > rest.size() ) {
         damaged( place, "a record has an impossible size" );
      }
      take( parseRecord( rest.substr( 0, head->size ), place ) );
      from += alignedSize( head->size );
      position_ = from;
   }
   position_ = std::max( position_, std::min( from, before.end ) );
}

} // namespace Fennet
