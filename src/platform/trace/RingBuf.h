// Writing one record into a trace file's ring.
#pragma once

#include <platform/trace/TraceFile.h>

#include <string_view>
#include <type_traits>

namespace Fennet {

// One record being written. Nothing of it is visible in the file before endMsg, and all of it
// after; a record that never ends leaves no mark.
//
// Borrows the file between startMsg and endMsg. Thread: the file's.
class RingBuf {
 public:
   // Begins a record of the message with this id, which the file describes, at the present time.
   // Overwrites the oldest records if the ring is full.
   void startMsg( TraceFile& file, int msgId );
   // Makes the record visible.
   void endMsg();

   // The number of bytes that the record still takes.
   [[nodiscard]] std::size_t room() const { return static_cast< std::size_t >( end_ - cursor_ ); }
   // Appends the bytes if there is room for them, else nothing from now on. Returns which.
   bool append( const void* data, std::size_t size );

 private:
   TraceFile* file_ = nullptr;
   std::byte* start_ = nullptr;
   std::byte* cursor_ = nullptr;
   std::byte* end_ = nullptr;
};

// Appends an argument to the record; true while the ring buffer accepts more. A text that does not
// fit loses its end and is marked so; a number that does not fit is left out.
template< typename Number >
requires std::is_arithmetic_v< Number >
bool put( RingBuf& ring, Number number ) {
   return ring.append( &number, sizeof number );
}
bool put( RingBuf& ring, std::string_view text );

} // namespace Fennet
