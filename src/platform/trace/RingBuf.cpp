// The bytes of a record.
#include <platform/trace/RingBuf.h>

#include <algorithm>
#include <cstring>

namespace Fennet {

void RingBuf::startMsg( TraceFile& file, int msgId ) {
   const RecordHead head{ 0, msgId, nanoseconds( CLOCK_MONOTONIC ) };
   file_ = &file;
   start_ = cursor_ = file.nextRecord();
   end_ = start_ + maxRecordSize;
   append( &head, sizeof head );
}

void RingBuf::endMsg() {
   const auto size = static_cast< std::uint32_t >( cursor_ - start_ );
   std::memcpy( start_ + offsetof( RecordHead, size ), &size, sizeof size );
   file_->recordIs( size );
}

bool RingBuf::append( const void* data, std::size_t size ) {
   if( size > room() ) {
      end_ = cursor_;
      return false;
   }
   std::memcpy( cursor_, data, size );
   cursor_ += size;
   return true;
}

bool put( RingBuf& ring, std::string_view text ) {
   auto length = static_cast< std::uint16_t >( text.size() );
   const bool fits = text.size() + sizeof length <= ring.room();
   if( !fits && ring.room() >= sizeof length ) {
      text = text.substr( 0, ring.room() - sizeof length );
      length = static_cast< std::uint16_t >( text.size() | cutString );
   }
   return put( ring, length ) && ring.append( text.data(), text.size() ) && fits;
}

} // namespace Fennet
