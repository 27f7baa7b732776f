// The layout of a ring-buffer trace file, shared by its writer and its readers.
//
//    header        headerSize bytes
//    ring          ringSize bytes, a power of two: the records, in blocks of blockSize
//    descriptions  from there to the end of the file: what each message id means
//
// Positions in the ring count bytes since the file's beginning and never wrap; a position's place
// is its value modulo ringSize. Records lie one behind the other, but none crosses the end of a
// block: a record size of 0 leads to the next block. The records from `tail`, the beginning of a
// block, to `end` are whole; what lies elsewhere in the ring means nothing. Likewise the first
// `descriptionsSize` bytes of descriptions are whole. Numbers are in the byte order of the machine
// that wrote them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Fennet {

// Stored last when a file is made: a file without it holds nothing yet. On machines with the lowest
// byte first it reads "FENNET2\n".
inline constexpr std::uint64_t fileMagic = 0x0a32'5445'4e4e'4546;

// What a reader may expect, in bytes.
inline constexpr std::uint32_t minRingSize = 64 << 10;
inline constexpr std::uint32_t maxRingSize = 1 << 30;
inline constexpr std::uint32_t headerSize = 4096;
inline constexpr std::uint64_t maxDescriptionsSize = 256 << 20;

// No record is longer than a block; it starts at a multiple of the alignment.
inline constexpr std::uint32_t blockSize = 4096;
inline constexpr std::uint32_t recordAlignment = 8;

// One moment by both clocks, in nanoseconds: what turns the times of records into times of day.
struct ClockPair {
   alignas( 8 ) std::int64_t monotonic;
   alignas( 8 ) std::int64_t realtime; // since 1970
};

// The head of a trace file. The same on every architecture of one byte order.
struct FileHeader {
   // What the file is, and who writes it.
   std::atomic< std::uint64_t > magic;
   std::uint32_t headerSize;
   std::uint32_t ringSize;
   std::int32_t pid;
   std::int32_t tid;
   char bootId[40];  // times of files with the same one can be compared; NUL-terminated
   char program[64]; // NUL-terminated

   // The latest pair is `clocks[ clockPairs % 2 ]`. It is renewed as the ring moves on.
   alignas( 8 ) std::atomic< std::uint64_t > clockPairs;
   ClockPair clocks[2];

   // What is whole: records by their positions, descriptions by their size in bytes.
   alignas( 64 ) std::atomic< std::uint64_t > tail;
   std::atomic< std::uint64_t > end;
   std::atomic< std::uint64_t > descriptionsSize;
};
static_assert( sizeof( FileHeader ) == 256 && offsetof( FileHeader, tail ) == 192 );
static_assert( std::atomic< std::uint64_t >::is_always_lock_free );

// A record: this head, then the arguments in order, with no gaps: a string as its length in 16
// bits and its characters, a bool as one byte, a number in its own size. Arguments that found no
// room are missing at the end.
struct RecordHead {
   std::uint32_t size;             // with the head, before alignment
   std::int32_t msgId;             // of the description
   alignas( 8 ) std::int64_t time; // nanoseconds of CLOCK_MONOTONIC
};

// The bytes that a record takes.
constexpr std::uint32_t alignedSize( std::uint32_t size ) {
   return ( size + recordAlignment - 1 ) & ~( recordAlignment - 1 );
}

// Marks, in a string's length, that the string lost its end.
inline constexpr std::uint16_t cutString = 0x8000;
static_assert( blockSize < cutString );

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
inline constexpr std::size_t maxDescriptionSize =
   sizeof( DescriptionHead ) +
   descriptionStrings * ( sizeof( std::uint16_t ) + maxDescriptionText );

} // namespace Fennet
