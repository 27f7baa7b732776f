// Reading one ring-buffer trace file, of a process that lives or has ended.
//
// A file may come from anywhere: every field is checked before it is used.
#pragma once

#include <platform/trace/FileFormat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Fennet {

// A file, or a place in it, that cannot be what a trace file holds there.
struct Damage : std::runtime_error {
   using std::runtime_error::runtime_error;
};

// What a message id means. As many codes as the format has {}.
struct Description {
   std::int32_t line = 0;
   std::int32_t level = 0;
   std::string sourceFile;
   std::vector< std::string > codes;
   std::string tag;
   std::string function;
   std::string format;
   std::string facility;
};

using Argument = std::variant< std::string, bool, std::int64_t, std::uint64_t >;

struct Record {
   std::int64_t time = 0; // nanoseconds of CLOCK_MONOTONIC
   std::shared_ptr< const Description > description;
   std::vector< Argument > arguments; // those that found room; a text that lost its end has "..."
   bool cut = false;                  // whether anything is missing
};

// Where a file's bytes come from: reads up to `size` bytes at `offset`, fewer only at the end.
using ReadAt = std::function< std::size_t( std::uint64_t offset, char* to, std::size_t size ) >;

// The bytes of the file at `path`. Throws std::system_error when it cannot be opened or read.
ReadAt bytesOf( const std::string& path );

// Reads a file from its oldest record on, and what its process adds.
class TraceReader {
 public:
   explicit TraceReader( ReadAt readAt );

   struct Origin {
      std::int32_t pid = 0;
      std::int32_t tid = 0;
      std::string bootId;
      std::string program;
   };
   // Known, like the clocks, once the file has begun.
   [[nodiscard]] bool begun() const { return ringSize_ != 0; }
   [[nodiscard]] const Origin& origin() const { return origin_; }
   // The latest pair of clock readings.
   [[nodiscard]] const ClockPair& clocks() const { return clocks_; }

   // Hands every record finished since the last call to `take`, the oldest first. Records that the
   // process has overwritten meanwhile are left out.
   // Throws Damage, naming the place; the records before it have been taken. No call may follow.
   void read( const std::function< void( Record ) >& take );

 private:
   struct State {
      std::uint64_t tail = 0;
      std::uint64_t end = 0;
      std::uint64_t descriptionsSize = 0;
   };

   bool readHeader( State& state );
   void readDescriptions( std::uint64_t size );
   std::string readRing( std::uint64_t from, std::uint64_t to );
   std::string readExactly( std::uint64_t offset, std::uint64_t size );
   [[nodiscard]] Record parseRecord( std::string_view bytes, std::uint64_t place ) const;

   ReadAt readAt_;
   std::uint32_t ringSize_ = 0;
   Origin origin_;
   ClockPair clocks_{};
   std::map< std::int32_t, std::shared_ptr< const Description > > descriptions_;
   std::uint64_t descriptionsRead_ = 0;
   std::uint64_t position_ = 0;
};

} // namespace Fennet
