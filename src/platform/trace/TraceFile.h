// Ring-buffer trace files: what one thread has to say lately, kept in the page cache, so that the
// end of the process, however sudden, loses no finished record.
#pragma once

#include <platform/Export.h>
#include <platform/trace/FileFormat.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#if defined( __x86_64__ )
#include <x86intrin.h>
#endif

namespace Fennet {

class RingBuf;

namespace Impl {

inline std::int64_t nanoseconds( clockid_t clock ) {
   timespec now{};
   clock_gettime( clock, &now );
   return std::int64_t{ now.tv_sec } * 1'000'000'000 + now.tv_nsec;
}

} // namespace Impl

// One file with its ring, written by one thread, mapped for as long as the object lives. The file
// stays behind, readable, when it goes.
//
// Thread: one at a time. Not for signal handlers, which could interrupt a record of their thread.
class TESSEL_EXPORT TraceFile {
 public:
   // Makes a new file for the calling thread in `folder`, named PID-TID.N.fennet, readable by its
   // user only. All its space is taken here, so that no later record can lack it.
   // `ringSize` is a power of two from minRingSize to maxRingSize.
   // Gives null, with the reason in errno, when the file cannot be made.
   static std::unique_ptr< TraceFile > create( const std::string& folder, std::uint32_t ringSize );

   ~TraceFile();
   TraceFile( const TraceFile& ) = delete;
   TraceFile& operator=( const TraceFile& ) = delete;

   // Whether the file has a place for this trace point's records: true once it is described.
   [[nodiscard]] bool describes( int msgId ) const {
      const auto index = static_cast< std::size_t >( msgId );
      return index < described_.size() && described_[index] == Described::yes;
   }

   // Appends the description of a message that the file does not describe yet. When the disk
   // takes no more, says so once and describes nothing from then on.
   void descriptionIs( int msgId, std::string_view description );

 private:
   friend RingBuf;
   enum class Described : std::uint8_t { no, yes };

   // The ring is overwritten in pieces: its oldest block goes at once.
   static constexpr std::size_t blocks = 32;

   TraceFile( int fd, std::byte* mapping, std::uint32_t headerSize, std::uint32_t ringSize );

   [[nodiscard]] std::uint64_t ticks() const {
#if defined( __x86_64__ )
      if( tsc_ ) {
         return __rdtsc();
      }
#endif
      return static_cast< std::uint64_t >( Impl::nanoseconds( CLOCK_MONOTONIC ) );
   }
   void makeRoom();
   void readClocks();

   FileHeader* header_;
   std::byte* ring_;         // followed by a second mapping of its beginning
   std::uint64_t end_ = 0;   // the header's, which is only written
   std::uint64_t blockEnd_;  // a record that starts there or later needs room made first
   std::uint64_t clocksDue_; // the ticks after which to read the clocks again
   std::uint64_t mask_;
   // The constant's value where compilers cannot see it: knowing the most that a text may have,
   // some copy it by string instructions, which take longer than all the rest of a record.
   std::uint32_t recordRoom_ = maxRecordSize;
   bool tsc_;
   std::vector< Described > described_;
   std::array< std::uint64_t, blocks > blockStarts_ = {};
   std::size_t lastBlock_ = 1; // the one that starts at 0
   int fd_;
   bool full_ = false;
};

} // namespace Fennet
