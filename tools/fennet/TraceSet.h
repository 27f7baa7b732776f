// Several trace files read as one: their records in the order of time.
#pragma once

#include "TraceReader.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Fennet {

// A record with its time of day in nanoseconds since 1970 and the thread that wrote it.
struct TimedRecord {
   std::int64_t time;
   std::shared_ptr< const TraceReader::Origin > origin;
   Record record;
};

class TraceSet {
 public:
   // Calls `complain` with what is wrong with a file. That file is read no further; others are.
   explicit TraceSet( std::function< void( const std::string& ) > complain );

   // Adds a file, or the trace files of a folder, whose names end in ".fennet". Every `read` also
   // adds those that are new in the folder.
   void add( const std::filesystem::path& path );

   // Passes every record completed since the last call to `take`, in the order of time. Holds one
   // record of each file at a time.
   void read( const std::function< void( const TimedRecord& ) >& take );

   // Returns whether a process that writes to one of the files may still be running.
   [[nodiscard]] bool mayGrow() const;

 private:
   struct File {
      std::string path;
      TraceReader reader;
      std::shared_ptr< const TraceReader::Origin > origin; // null until the header is complete
      bool damaged = false;
   };

   void addFile( const std::filesystem::path& path );
   void addFolder( const std::filesystem::path& folder );
   template< typename Read >
   void attempt( File& file, const Read& read );

   std::function< void( const std::string& ) > complain_;
   std::vector< std::filesystem::path > folders_;
   std::set< std::filesystem::path > known_;
   std::vector< File > files_;
};

} // namespace Fennet
