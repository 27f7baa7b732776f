// Reading one ring-buffer trace file, of a living process or one that has ended.
//
// Files are not trusted: every field is checked before it is used, and a file takes no more memory
// than one block of its ring and some ten times its descriptions.
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

// The file is not a trace file or is damaged.
struct Damage : std::runtime_error {
   using std::runtime_error::runtime_error;
};

// What a message ID means. There are as many codes as {} in the format.
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
   std::vector< Argument > arguments; // those that were recorded; a text that was cut ends in "..."
   bool cut = false;                  // whether anything is missing
};

// The source of a file's bytes: reads `size` bytes at `offset`, fewer only at the end of the file.
using ReadAt = std::function< std::size_t( std::uint64_t offset, char* to, std::size_t size ) >;

// Returns the bytes of the file at `path`. Throws std::system_error if it cannot be opened or read.
ReadAt bytesOf( const std::string& path );

// Reads a file from its oldest record on, including what its process adds.
//
// Every operation throws Damage, naming the place, if the file cannot be read any further. The
// reader must not be used afterwards.
class TraceReader {
 public:
   explicit TraceReader( ReadAt readAt );

   // Looks for what the process has added. Returns whether the header is complete: until then,
   // there are no origin, no clocks and no records.
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

   // Returns the next of the records that were complete at the last refresh, the oldest first, or
   // nothing after the last one. Skips records that the process has overwritten in the meantime.
   std::optional< Record > next();

   // Refreshes and passes all records to `take`.
   void read( const std::function< void( Record ) >& take );

 private:
   bool readHeader( FileHeader& header );
   void readDescriptions( std::uint64_t size );
   void readBlock();
   std::string readExactly( std::uint64_t offset, std::size_t size );
   [[nodiscard]] Record parseRecord( const RecordHead& head, std::string_view arguments ) const;
   // Returns the offset of the record at `position_` in the file.
   [[nodiscard]] std::uint64_t place() const { return headerSize + position_ % ringSize_; }

   ReadAt readAt_;
   std::uint32_t ringSize_ = 0;
   Origin origin_;
   ClockPair clocks_{};
   std::map< std::int32_t, std::shared_ptr< const Description > > descriptions_;
   std::uint64_t descriptionsSize_ = 0; // of those read so far
   std::uint64_t end_ = 0;              // at the last refresh
   std::uint64_t position_ = 0;         // of the next record
   std::string block_;                  // the part of the latest block that was read
   std::uint64_t blockEnd_ = 0;         // the position after it
};

} // namespace Fennet
