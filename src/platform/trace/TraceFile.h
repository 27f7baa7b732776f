// Ring-buffer trace files: what one thread traced most recently, kept in the page cache, so that
// no finished record is lost, however suddenly the process ends.
#pragma once

#include <platform/trace/FileFormat.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Fennet {

std::int64_t nanoseconds( clockid_t clock );

// One file with its ring, written by one thread and mapped as long as the object exists. The file
// itself remains afterwards. Other programs can write to it, so nothing is ever read back from it.
//
// Thread: one at a time. Not for signal handlers, which could interrupt a record of their thread.
class TraceFile {
 public:
   // Creates a file for the calling thread in `folder`, named PID-TID.N.fennet, with mode 0600. All
   // its space is allocated here, so no later record can run out of space.
   // `ringSize` is a power of two from minRingSize to maxRingSize.
   // Returns null and sets errno if the file cannot be created. Throws std::bad_alloc.
   static std::unique_ptr< TraceFile > create( const std::string& folder, std::uint32_t ringSize );

   ~TraceFile();
   TraceFile( const TraceFile& ) = delete;
   TraceFile& operator=( const TraceFile& ) = delete;

   // Releases the path to the caller; the file has none afterwards.
   std::string takePath() { return std::move( path_ ); }

   // Returns whether the file can take this trace point's records: true once it describes that.
   [[nodiscard]] bool describes( int msgId ) const {
      const auto index = static_cast< std::size_t >( msgId );
      return index < described_.size() && described_[index];
   }
   // Appends the description of a message that the file does not describe yet, and returns whether
   // that succeeded. If not, reports the failure once and describes nothing from then on.
   bool descriptionIs( int msgId, std::string_view description );
   // Appends a record of at most blockSize bytes. If the ring is full, discards the oldest block.
   void recordIs( std::string_view record );

 private:
   explicit TraceFile( std::uint32_t ringSize ) : ringSize_( ringSize ) {}
   bool begins( const std::string& folder );
   void startBlock();

   std::string path_;
   int fd_ = -1;
   const std::uint32_t ringSize_;
   FileHeader* header_ = nullptr; // only written
   std::byte* ring_ = nullptr;
   std::uint64_t end_ = 0; // the position after the last record
   std::uint64_t clockPairs_ = 0;
   std::uint64_t descriptionsSize_ = 0;
   std::vector< bool > described_; // by message id
   bool full_ = false;
};

} // namespace Fennet
