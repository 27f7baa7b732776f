// Ring-buffer trace handles: where a process keeps its trace files, and the process-wide default.
//
// The environment variable FENNET_TRACE makes the default handle when the library is loaded. It
// names a folder and, after the last comma, the size of each thread's ring, in bytes or with K or
// M behind the number, from 64K to 1024M, rounded up to a power of two:
//
//    FENNET_TRACE=/var/tmp/traces,1M
//
// A malformed value is reported once on standard error and makes no handle.
#pragma once

#include <platform/Export.h>
#include <platform/trace/TraceFile.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace Fennet {

namespace Impl {

// The file that a thread wrote to last. Trivial, so that reading it takes no guard; in the static
// part of the thread's storage, so that it takes no call.
struct LastUsed {
   std::uint64_t handle; // the handle's number
   TraceFile* file;
};
[[gnu::tls_model( "initial-exec" )]] TESSEL_EXPORT extern constinit thread_local LastUsed lastUsed;

} // namespace Impl

// A folder for trace files, each made by the first record of its thread. The child of a fork
// makes files of its own.
//
// Thread: a shared handle by all threads, another by one at a time. A handle outlives every trace
// that uses it; files of other threads stay open until these end.
class TESSEL_EXPORT TraceHandle {
 public:
   // `ringSize` is rounded up to a power of two within minRingSize and maxRingSize. A handle that
   // is not `shared` has one file, whichever thread writes it.
   TraceHandle( std::string folder, std::uint32_t ringSize, bool shared );
   ~TraceHandle();
   TraceHandle( const TraceHandle& ) = delete;
   TraceHandle& operator=( const TraceHandle& ) = delete;

   // The file that the calling thread writes to: its own when the handle is shared, else the
   // handle's one. Null where there is none: it could not be made, which is said once, or the
   // thread is about to end.
   TraceFile* mtTraceFile() {
      return Impl::lastUsed.handle == number_ ? Impl::lastUsed.file : findTraceFile();
   }

 private:
   TraceFile* findTraceFile();
   std::unique_ptr< TraceFile > makeTraceFile();

   const std::uint64_t number_; // no two handles of a process have the same
   const std::string folder_;
   const std::uint32_t ringSize_;
   const bool shared_;
   std::atomic< bool > troubleReported_ = false;
   std::unique_ptr< TraceFile > ownFile_;
   unsigned ownFileForks_; // how often the process had forked when the file was made
};

// The handle that every trace point writes to; null when there is none. Whoever sets it keeps the
// handle as long as any thread may trace.
TESSEL_EXPORT extern std::atomic< TraceHandle* > defaultFennetHandle;

} // namespace Fennet
