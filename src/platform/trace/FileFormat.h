// The layout of a ring-buffer trace file, shared by its writer and its readers.
//
//    header        headerSize bytes, a multiple of the page size
//    ring          ringSize bytes, a power of two: the records
//    descriptions  from there to the end of the file: what each message id means
//
// Positions in the ring count bytes since the file's beginning and never wrap; a position's place
// is its value modulo ringSize. The records from `tail` to `end` are whole; what lies elsewhere in
// the ring means nothing. Likewise the first `descriptionsSize` bytes of descriptions are whole.
// Numbers are in the byte order of the machine that wrote them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Fennet {

// Stored last when a file is made: a file without it holds nothing yet.
inline constexpr std::uint64_t fileMagic = 0x0a31'5445'4e4e'4546; // "FENNET1\n" where it is native

// What a reader may expect, in bytes.
inline constexpr std::uint32_t minRingSize = 64 << 10;
inline constexpr std::uint32_t maxRingSize = 1 << 30;
inline constexpr std::uint32_t maxHeaderSize = 64 << 10;
inline constexpr std::uint64_t maxDescriptionsSize = 256 << 20;

// No record is longer; it starts at a multiple of the alignment.
inline constexpr std::uint32_t maxRecordSize = 4096;
inline constexpr std::uint32_t recordAlignment = 8;

// One moment as three clocks show it. Records carry ticks; two of these moments give the ticks'
// rate, and the third clock the time of day.
struct ClockReading {
   std::uint64_t ticks;    // of the time stamp counter, or nanoseconds where there is none to use
   std::int64_t monotonic; // nanoseconds
   std::int64_t realtime;  // nanoseconds since 1970
};

// The head of a trace file.
struct FileHeader {
   // What the file is, and who writes it.
   std::atomic< std::uint64_t > magic;
   std::uint32_t headerSize;
   std::uint32_t ringSize;
   std::int32_t pid;
   std::int32_t tid;
   char bootId[40];  // ticks of files with the same one can be compared; NUL-terminated
   char program[64]; // NUL-terminated

   // The earliest reading of the process, and the latest: `recent[ readings % 2 ]`.
   ClockReading first;
   ClockReading recent[2];
   std::atomic< std::uint64_t > readings;

   // What is whole: records by their positions, descriptions by their size in bytes.
   alignas( 64 ) std::atomic< std::uint64_t > tail;
   std::atomic< std::uint64_t > end;
   std::atomic< std::uint64_t > descriptionsSize;
};
static_assert( sizeof( FileHeader ) <= 4096 );
static_assert( std::atomic< std::uint64_t >::is_always_lock_free );

// A record: this head, then the arguments in order, with no gaps: a string as its length in 16
// bits and its characters, a bool as one byte, a number in its own size. Arguments that found no
// room are missing at the end.
struct RecordHead {
   std::uint32_t size;  // with the head, before alignment
   std::int32_t msgId;  // of the description
   std::uint64_t ticks; // as in a ClockReading
};

// The bytes from a record's start to the next one's.
constexpr std::uint32_t alignedSize( std::uint32_t size ) {
   return ( size + recordAlignment - 1 ) & ~( recordAlignment - 1 );
}

// Marks, in a string's length, that the string lost its end.
inline constexpr std::uint16_t cutString = 0x8000;
static_assert( maxRecordSize < cutString );

// A description: this head, then six strings, each as its length in 16 bits and its characters:
// source file, argument codes separated by spaces, tag, function, format, facility.
struct DescriptionHead {
   std::uint32_t size; // with the head
   std::int32_t msgId; // above 0
   std::int32_t line;  // of the trace point in its source file
   std::int32_t level; // 0 to 31
};
// What a description holds behind its head.
inline constexpr std::size_t descriptionStrings = 6;
inline constexpr std::size_t maxDescriptionText = 8 << 10; // a longer text loses its end

} // namespace Fennet
