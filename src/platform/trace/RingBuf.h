// Writing one record into a trace file's ring.
#pragma once

#include <platform/trace/TraceFile.h>

#include <concepts>
#include <cstring>
#include <string_view>

namespace Fennet {

// One record being written. Nothing of it is visible in the file before endMsg, and all of it
// after; a record that never ends leaves no mark.
//
// Borrows the file between startMsg and endMsg. Thread: the file's.
class RingBuf {
 public:
   // Begins a record of the message with this id, which the file describes, at the present time.
   // Overwrites the oldest records where the ring is full.
   void startMsg( TraceFile& file, int msgId ) {
      file_ = &file;
      const std::uint64_t ticks = file.ticks();
      if( ticks > file.clocksDue_ ) [[unlikely]] {
         file.readClocks();
      }
      if( file.end_ >= file.blockEnd_ ) [[unlikely]] {
         file.makeRoom();
      }
      start_ = file.ring_ + ( file.end_ & file.mask_ );
      cursor_ = start_ + sizeof( RecordHead );
      limit_ = start_ + file.recordRoom_;
      const RecordHead head{ 0, msgId, ticks };
      std::memcpy( start_, &head, sizeof head );
   }

   // Makes the record visible.
   void endMsg() {
      const auto size = static_cast< std::uint32_t >( cursor_ - start_ );
      std::memcpy( start_, &size, sizeof size );
      file_->end_ += alignedSize( size );
      // The one store that makes the record part of the file. Release: all its bytes are stored
      // before, for a reader of the living file as for a kill, which keeps the program's order.
      file_->header_->end.store( file_->end_, std::memory_order_release );
   }

   // How many bytes the record still takes.
   [[nodiscard]] std::size_t room() const { return static_cast< std::size_t >( limit_ - cursor_ ); }

   // Appends bytes for which there is room.
   void append( const void* data, std::size_t size ) {
      std::memcpy( cursor_, data, size );
      cursor_ += size;
   }

   // Appends nothing from now on.
   void refuse() { limit_ = cursor_; }

 private:
   TraceFile* file_ = nullptr;
   std::byte* start_ = nullptr;
   std::byte* cursor_ = nullptr;
   std::byte* limit_ = nullptr;
};

// What a record holds in its own size.
template< typename T >
concept RingNumber =
   std::same_as< T, bool > || std::same_as< T, std::int32_t > || std::same_as< T, std::uint32_t > ||
   std::same_as< T, std::int64_t > || std::same_as< T, std::uint64_t >;

// Appends an argument to the record; true while the ring buffer accepts more. A text that does not
// fit loses its end and is marked so; a number that does not fit is left out.
template< RingNumber Number >
bool put( RingBuf& ring, Number number ) {
   if( ring.room() < sizeof number ) [[unlikely]] {
      ring.refuse();
      return false;
   }
   ring.append( &number, sizeof number );
   return true;
}

// Likewise.
inline bool put( RingBuf& ring, std::string_view text ) {
   auto length = static_cast< std::uint16_t >( text.size() );
   const bool fits = text.size() + sizeof length <= ring.room();
   if( !fits ) [[unlikely]] {
      if( ring.room() < sizeof length ) {
         ring.refuse();
         return false;
      }
      text = text.substr( 0, ring.room() - sizeof length );
      length = static_cast< std::uint16_t >( text.size() | cutString );
   }
   ring.append( &length, sizeof length );
   ring.append( text.data(), text.size() );
   return fits;
}

} // namespace Fennet
