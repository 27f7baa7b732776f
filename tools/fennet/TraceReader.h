// Reading one ring-buffer trace file, of a living process or one that has ended.
//
// A file may come from anywhere: every field is checked before it is used, and a file costs no more
// memory than a piece of its ring and the descriptions that it really holds.
#pragma once

#include <platform/trace/FileFormat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
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

// The bytes of the file at `path`. Throws std::system_error if it cannot be opened or read.
ReadAt bytesOf( const std::string& path );

// Reads a file from its oldest record on, and what its process adds.
//
// Every operation throws Damage, naming the place, if the file cannot be read any further; no call
// may follow.
class TraceReader {
 public:
   explicit TraceReader( ReadAt readAt );

   // Finds out what the process has added. Returns whether the file has begun: before that, there
   // is no origin, and there are no clocks and no records.
   bool refresh();
   [[nodiscard]] bool begun() const { return ringSize_ != 0; }

   struct Origin {
      std::int32_t pid = 0;
      std::int32_t tid = 0;
      std::string bootId;
      std::string program;
   };
   [[nodiscard]] const Origin& origin() const { return origin_; }
   // The latest pair of clock readings.
   [[nodiscard]] const ClockPair& clocks() const { return clocks_; }

   // Returns the next of the records that were finished at the last refresh, the oldest first;
   // nothing after the last one. Records that the process has overwritten meanwhile are left out.
   std::optional< Record > next();

   // Refreshes and hands all records to `take`.
   void read( const std::function< void( Record ) >& take );

 private:
   bool readHeader( FileHeader& header );
   void readDescriptions( std::uint64_t size );
   void readBlock();
   std::string readExactly( std::uint64_t offset, std::size_t size );
   [[nodiscard]] Record parseRecord( const RecordHead& head, std::string_view arguments ) const;
   // Where the record at `position_` stands in the file.
   [[nodiscard]] std::uint64_t place() const { return headerSize + position_ % ringSize_; }

   ReadAt readAt_;
   std::uint32_t ringSize_ = 0;
   Origin origin_;
   ClockPair clocks_{};
   std::map< std::int32_t, std::shared_ptr< const Description > > descriptions_;
   std::uint64_t descriptionsSize_ = 0; // of those that were read
   std::uint64_t end_ = 0;              // at the last refresh
   std::uint64_t position_ = 0;         // of the next record
   std::string block_;                  // what was read of the latest block
   std::uint64_t blockEnd_ = 0;         // the position behind that
};

} // namespace Fennet
