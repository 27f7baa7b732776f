// The layout of a ring-buffer trace file, shared by its writer and its readers.
//
//    header        headerSize bytes
//    ring          ringSize bytes, a power of two: the records, in blocks of blockSize
//    descriptions  the rest of the file: what each message id means
//
// Positions in the ring count bytes since the file was created and never wrap; a position's offset
// is its value modulo ringSize. Records follow one another, but none crosses the end of a block: a
// record size of 0 means that the next record is in the next block. The records from `tail`, the
// start of a block, to `end` are complete; the rest of the ring is meaningless. Likewise, the first
// `descriptionsSize` bytes of descriptions are complete. Numbers are in the byte order of the
// machine that wrote them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Fennet {

// Stored last when a file is created: a file without it holds nothing yet. On little-endian
// machines it reads "FENNET2\n".
inline constexpr std::uint64_t fileMagic = 0x0a32'5445'4e4e'4546;

// Sizes that a reader may rely on, in bytes.
inline constexpr std::uint32_t minRingSize = 64 << 10;
inline constexpr std::uint32_t maxRingSize = 1 << 30;
inline constexpr std::uint32_t headerSize = 4096;
inline constexpr std::uint64_t maxDescriptionsSize = 256 << 20;

// No record is longer than a block; it starts at a multiple of the alignment.
inline constexpr std::uint32_t blockSize = 4096;
inline constexpr std::uint32_t recordAlignment = 8;

// One moment on both clocks, in nanoseconds; used to convert the times of records to times of day.
struct ClockPair {
   alignas( 8 ) std::int64_t monotonic;
   alignas( 8 ) std::int64_t realtime; // since 1970
};

// The header of a trace file. The same on all architectures with the same byte order.
struct FileHeader {
   // What the file is, and which thread writes it.
   std::atomic< std::uint64_t > magic;
   std::uint32_t headerSize;
   std::uint32_t ringSize;
   std::int32_t pid;
   std::int32_t tid;
   char bootId[40];  // times are comparable between files with the same one; NUL-terminated
   char program[64]; // NUL-terminated

   // The latest pair is `clocks[ clockPairs % 2 ]`. It is updated as the ring advances.
   alignas( 8 ) std::atomic< std::uint64_t > clockPairs;
   ClockPair clocks[2];

   // What is complete: records by their positions, descriptions by their size in bytes.
   alignas( 64 ) std::atomic< std::uint64_t > tail;
   std::atomic< std::uint64_t > end;
   std::atomic< std::uint64_t > descriptionsSize;
};
static_assert( sizeof( FileHeader ) == 256 && offsetof( FileHeader, tail ) == 192 );
static_assert( std::atomic< std::uint64_t >::is_always_lock_free );

// A record: this head, then the arguments in order, without gaps: a string as a 16-bit length and
// its characters, a bool as one byte, a number in its own size. Arguments that did not fit are
// missing at the end.
struct RecordHead {
   std::uint32_t size;             // including the head, before alignment
   std::int32_t msgId;             // of the description
   alignas( 8 ) std::int64_t time; // nanoseconds of CLOCK_MONOTONIC
};

// The number of bytes that a record occupies.
constexpr std::uint32_t alignedSize( std::uint32_t size ) {
   return ( size + recordAlignment - 1 ) & ~( recordAlignment - 1 );
}

// Set in a string's length if the string was truncated.
inline constexpr std::uint16_t cutString = 0x8000;
static_assert( blockSize < cutString );

// A description: this head, then six strings, each as a 16-bit length and its characters:
// source file, argument codes separated by spaces, tag, function, format, facility.
struct DescriptionHead {
   std::uint32_t size; // including the head
   std::int32_t msgId; // above 0
   std::int32_t line;  // of the trace point in its source file
   std::int32_t level; // 0 to 31
};
// What follows the head of a description.
inline constexpr std::size_t descriptionStrings = 6;
inline constexpr std::size_t maxDescriptionText = 8 << 10; // longer text is truncated
inline constexpr std::size_t maxDescriptionSize =
   sizeof( DescriptionHead ) +
   descriptionStrings * ( sizeof( std::uint16_t ) + maxDescriptionText );

} // namespace Fennet
