// Export to the Common Trace Format 1.8, for the many viewers that read it.
#pragma once

#include "TraceSet.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

namespace Fennet {

// A folder with the metadata and one stream per thread, numbered in the order of their first
// records.
//
// Every operation throws std::system_error, naming the file, if the folder cannot be written.
class CtfExport {
 public:
   // Creates the folder. Throws if it exists.
   explicit CtfExport( std::filesystem::path folder );

   // Writes a record to its thread's stream. Records of one thread must be added in the order of
   // time.
   void add( const TimedRecord& record );
   // Writes the metadata and completes the streams. The export cannot be read before.
   void finish();

 private:
   // One stream: a single packet with all records of a thread.
   struct Stream {
      std::filesystem::path path;
      std::ofstream file;
      std::int64_t begin;
      std::int64_t end;
   };

   Stream& streamOf( const TimedRecord& record );
   std::uint32_t eventOf( const std::shared_ptr< const Description >& description );

   const std::filesystem::path folder_;
   std::map< std::shared_ptr< const TraceReader::Origin >, Stream > streams_;
   std::map< std::shared_ptr< const Description >, std::uint32_t > events_;
   std::string eventDeclarations_;
};

} // namespace Fennet
