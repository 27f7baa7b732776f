// Checking and parsing the header, the descriptions and the records.
#include "TraceReader.h"

#include <platform/trace/TextTrace.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Fennet {

namespace {

[[noreturn]] void damaged( std::uint64_t place, const std::string& what ) {
   throw Damage( "at byte " + std::to_string( place ) + ": " + what );
}

// Takes values off the front of a byte string; returns nothing if too few bytes are left.
class Bytes {
 public:
   explicit Bytes( std::string_view bytes ) : bytes_( bytes ) {}

   [[nodiscard]] bool empty() const { return bytes_.empty(); }

   template< typename Value >
   std::optional< Value > take() {
      const auto bytes = takeBytes( sizeof( Value ) );
      if( !bytes ) {
         return std::nullopt;
      }
      Value value;
      std::memcpy( &value, bytes->data(), sizeof value );
      return value;
   }

   std::optional< std::string_view > takeBytes( std::size_t size ) {
      if( bytes_.size() < size ) {
         return std::nullopt;
      }
      const std::string_view bytes = bytes_.substr( 0, size );
      bytes_.remove_prefix( size );
      return bytes;
   }

 private:
   std::string_view bytes_;
};

template< typename Value, typename As = Value >
std::optional< Argument > takeNumber( Bytes& bytes, bool& ) {
   const auto value = bytes.take< Value >();
   return value ? std::optional< Argument >( static_cast< As >( *value ) ) : std::nullopt;
}

std::optional< Argument > takeString( Bytes& bytes, bool& cut ) {
   const auto length = bytes.take< std::uint16_t >();
   const auto text = length ? bytes.takeBytes( *length & ~cutString ) : std::nullopt;
   if( !text ) {
      return std::nullopt;
   }
   const bool isCut = ( *length & cutString ) != 0;
   cut |= isCut;
   return std::string( *text ) + ( isCut ? "..." : "" );
}

using TakeArgument = std::optional< Argument > ( * )( Bytes& bytes, bool& cut );

// Returns the function that reads an argument with this code, or null if the code is unknown.
TakeArgument readerOf( std::string_view code ) {
   return code == "p"    ? &takeString
          : code == "b"  ? &takeNumber< std::uint8_t, bool >
          : code == "si" ? &takeNumber< std::int32_t, std::int64_t >
          : code == "ui" ? &takeNumber< std::uint32_t, std::uint64_t >
          : code == "sl" ? &takeNumber< std::int64_t >
          : code == "ul" ? &takeNumber< std::uint64_t >
                         : nullptr;
}

Description
parseDescription( const DescriptionHead& head, std::string_view body, std::uint64_t place ) {
   Description description;
   description.line = head.line;
   description.level = head.level;
   std::string codes;
   Bytes bytes( body );
   for( std::string* const text :
        { &description.sourceFile, &codes, &description.tag, &description.function,
          &description.format, &description.facility } ) {
      const auto size = bytes.take< std::uint16_t >();
      const auto taken = size ? bytes.takeBytes( *size ) : std::nullopt;
      if( !taken ) {
         damaged( place, "a description ends within its texts" );
      }
      *text = *taken;
   }
   for( std::string_view rest = codes; !rest.empty(); ) {
      const std::string_view code = rest.substr( 0, rest.find( ' ' ) );
      if( !readerOf( code ) ) {
         damaged( place, "a description has an unknown argument code" );
      }
      description.codes.emplace_back( code );
      rest.remove_prefix( std::min( rest.size(), code.size() + 1 ) );
   }
   const int wanted = Tessel::Impl::placeholders( description.format );
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

std::string TraceReader::readExactly( std::uint64_t offset, std::size_t size ) {
   std::string bytes( size, '\0' );
   if( readAt_( offset, bytes.data(), size ) != size ) {
      damaged( offset, "the file is too short" );
   }
   return bytes;
}

// Returns false while the header is incomplete.
bool TraceReader::readHeader( FileHeader& header ) {
   // The process may be storing positions meanwhile; only those of a damaged file never fit.
   for( int attempt = 0; attempt < 100; ++attempt ) {
      const std::size_t size = readAt_( 0, reinterpret_cast< char* >( &header ), sizeof header );
      std::atomic_thread_fence( std::memory_order_acquire );
      if( header.magic == 0 ) {
         return false;
      }
      if( header.magic != fileMagic ) {
         damaged( 0, "this is no trace file of a machine like this one" );
      }
      if( size != sizeof header ) {
         damaged( size, "the file is too short" );
      }
      if( header.headerSize != headerSize ) {
         damaged( offsetof( FileHeader, headerSize ), "invalid header size" );
      }
      const std::uint32_t ringSize = header.ringSize;
      if( ringSize < minRingSize || ringSize > maxRingSize || !std::has_single_bit( ringSize ) ||
          ( begun() && ringSize != ringSize_ ) ) {
         damaged( offsetof( FileHeader, ringSize ), "invalid ring size" );
      }
      constexpr std::uint64_t mostWritten = std::numeric_limits< std::int64_t >::max();
      if( header.tail <= header.end && header.end - header.tail <= ringSize &&
          header.end <= mostWritten && header.tail % blockSize == 0 &&
          header.end % recordAlignment == 0 ) {
         return true;
      }
   }
   damaged( offsetof( FileHeader, tail ), "inconsistent positions" );
}

bool TraceReader::refresh() {
   FileHeader header{};
   if( !readHeader( header ) ) {
      return false;
   }
   if( !begun() ) {
      const auto textOf = []( const auto& chars ) {
         return std::string( chars, std::find( chars, std::end( chars ), '\0' ) );
      };
      ringSize_ = header.ringSize;
      origin_ = { header.pid, header.tid, textOf( header.bootId ), textOf( header.program ) };
   }
   if( header.end < position_ ) {
      damaged( offsetof( FileHeader, end ), "end moved backwards" );
   }
   end_ = header.end;
   position_ = std::max< std::uint64_t >( position_, header.tail );
   clocks_ = header.clocks[header.clockPairs % 2];
   return true;
}

void TraceReader::readDescriptions( std::uint64_t size ) {
   if( size < descriptionsSize_ || size > maxDescriptionsSize ) {
      damaged( offsetof( FileHeader, descriptionsSize ), "invalid size of the descriptions" );
   }
   while( descriptionsSize_ < size ) {
      const std::uint64_t place = headerSize + std::uint64_t{ ringSize_ } + descriptionsSize_;
      const auto head =
         *Bytes( readExactly( place, sizeof( DescriptionHead ) ) ).take< DescriptionHead >();
      if( head.size < sizeof head || head.size > maxDescriptionSize ||
          head.size > size - descriptionsSize_ ) {
         damaged( place, "a description has an impossible size" );
      }
      if( head.msgId <= 0 ) {
         damaged( place, "a description has an impossible id" );
      }
      const std::string body = readExactly( place + sizeof head, head.size - sizeof head );
      descriptions_[head.msgId] =
         std::make_shared< const Description >( parseDescription( head, body, place ) );
      descriptionsSize_ += head.size;
   }
}

// Reads the rest of the block at the current position.
void TraceReader::readBlock() {
   const std::uint64_t size =
      std::min< std::uint64_t >( blockSize - position_ % blockSize, end_ - position_ );
   block_ = readExactly( place(), static_cast< std::size_t >( size ) );
   blockEnd_ = position_ + block_.size();
   std::atomic_thread_fence( std::memory_order_acquire );
   // The process may have continued in the meantime. Anything it may have overwritten is before the
   // current tail, and its new descriptions may be needed.
   FileHeader header{};
   readHeader( header );
   position_ = std::max< std::uint64_t >( position_, header.tail );
   readDescriptions( header.descriptionsSize );
}

std::optional< Record > TraceReader::next() {
   while( position_ < end_ ) {
      if( position_ >= blockEnd_ ) {
         readBlock();
         continue;
      }
      const auto left = static_cast< std::size_t >( blockEnd_ - position_ );
      const auto rest = std::string_view( block_ ).substr( block_.size() - left );
      if( blockEnd_ % blockSize == 0 && Bytes( rest ).take< std::uint32_t >() == 0U ) {
         position_ = blockEnd_;
         continue;
      }
      const auto head = Bytes( rest ).take< RecordHead >();
      if( !head || head->size < sizeof *head || head->size > rest.size() ) {
         damaged( place(), "a record has an impossible size" );
      }
      Record record = parseRecord( *head, rest.substr( sizeof *head, head->size - sizeof *head ) );
      position_ += alignedSize( head->size );
      return record;
   }
   return std::nullopt;
}

void TraceReader::read( const std::function< void( Record ) >& take ) {
   refresh();
   while( auto record = next() ) {
      take( *std::move( record ) );
   }
}

Record TraceReader::parseRecord( const RecordHead& head, std::string_view arguments ) const {
   const auto description = descriptions_.find( head.msgId );
   if( description == descriptions_.end() ) {
      damaged( place(), "a record has the unknown message id " + std::to_string( head.msgId ) );
   }
   Record record{ head.time, description->second, {}, false };
   Bytes bytes( arguments );
   for( const std::string& code : description->second->codes ) {
      if( bytes.empty() ) {
         record.cut = true;
         break;
      }
      auto argument = readerOf( code )( bytes, record.cut );
      if( !argument ) {
         damaged( place(), "a record ends within an argument" );
      }
      record.arguments.push_back( *std::move( argument ) );
   }
   if( !bytes.empty() ) {
      damaged( place(), "a record is longer than its arguments" );
   }
   return record;
}

} // namespace Fennet
