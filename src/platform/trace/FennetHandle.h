// Ring-buffer trace handles: where a process keeps its trace files, and the process-wide default.
//
// The environment variable FENNET_TRACE creates the default handle when the library is loaded. It
// names a folder and, after the last comma, the size of each thread's ring, in bytes or with the
// suffix K or M, from 64K to 1024M, rounded up to a power of two:
//
//    FENNET_TRACE=/var/tmp/traces,1M
//
// A malformed value is reported once on standard error and ignored.
#pragma once

#include <platform/Export.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace Fennet {

class TraceFile;

/// A folder for trace files, each created by the first record of its thread. A child process
/// creates its own files.
///
/// A process keeps the files of the 64 threads that ended last and removes older ones.
///
/// Thread: any for a shared handle, one at a time for any other. A handle must outlive every trace
/// that uses it; files of other threads stay open until those threads end.
class TESSEL_EXPORT TraceHandle {
 public:
   /// A handle for files in `folder` with rings of `ringSize` bytes, rounded up to a power of two
   /// from 64 KiB to 1 GiB. A handle that is not `shared` has one file for all threads.
   TraceHandle( std::string folder, std::uint32_t ringSize, bool shared );
   ~TraceHandle();
   TraceHandle( const TraceHandle& ) = delete;
   TraceHandle& operator=( const TraceHandle& ) = delete;

   /// Returns the file that the calling thread writes to: its own if the handle is shared, else the
   /// handle's only one. Returns null if the file could not be created, which is reported once, or
   /// if the thread is about to end.
   TraceFile* mtTraceFile();

 private:
   // The files of one thread, or the file of a handle that is not shared.
   struct Files;

   static Files& threadFiles();

   const std::uint64_t number_; // unique within the process
   const std::string folder_;
   const std::uint32_t ringSize_;
   Files* const ownFiles_; // owned; null if the handle is shared
   std::atomic_flag troubleReported_;
};

/// The handle that every trace point writes to; null if there is none. Borrows the handle, which
/// must exist as long as any thread may trace.
TESSEL_EXPORT extern std::atomic< TraceHandle* > defaultFennetHandle;

} // namespace Fennet
