// The files of each thread, those of threads that have ended, and the default handle.
#include <platform/trace/FennetHandle.h>

#include <platform/trace/Line.h>
#include <platform/trace/TraceFile.h>
#include <platform/value/LockedByForks.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include <pthread.h>
#include <unistd.h>

namespace Fennet {

namespace {

constinit std::atomic< std::uint64_t > handles = 0;

// Changed only in the child of a fork, while it has one thread.
constinit std::uint32_t forks = 0;
[[maybe_unused]] const int forksAreCounted = pthread_atfork( nullptr, nullptr, [] { ++forks; } );

// Distinguishes a process from its parent: by its id after any kind of fork, by the count if both
// have the same id in different PID namespaces.
using Process = std::pair< std::uint32_t, pid_t >;

Process thisProcess() {
   return { forks, getpid() };
}

// The files that a process keeps for threads that have ended.
struct EndedFiles {
   std::array< std::string, 64 > paths; // oldest first
   Process process = thisProcess();
};
constinit std::mutex endedMutex;
[[maybe_unused]] const int mutexIsLockedByForks = Tessel::Impl::lockedByForks< endedMutex >();
// Never destroyed: threads may end until the very end of the process.
EndedFiles& endedFiles = *new EndedFiles;

// Keeps the file of a thread that is ending, in place of the oldest one.
void keepEnded( std::string path ) {
   const std::scoped_lock lock( endedMutex );
   if( endedFiles.process != thisProcess() ) {
      // The parent's files are left to the parent.
      endedFiles = {};
   }
   auto& paths = endedFiles.paths;
   std::rotate( paths.begin(), paths.begin() + 1, paths.end() );
   const std::string oldest = std::exchange( paths.back(), std::move( path ) );
   if( !oldest.empty() ) {
      unlink( oldest.c_str() );
   }
}

constinit thread_local bool threadEnds = false;

struct Settings {
   std::string folder;
   std::uint32_t ringSize;
};

std::optional< Settings > parseSettings( std::string_view text ) {
   const std::size_t comma = text.rfind( ',' );
   if( comma == std::string_view::npos || !text.starts_with( '/' ) ) {
      return std::nullopt;
   }
   const std::string_view sizeText = text.substr( comma + 1 );
   std::uint64_t size = 0;
   const auto [end, error] =
      std::from_chars( sizeText.data(), sizeText.data() + sizeText.size(), size );
   const std::string_view unit( end, sizeText.data() + sizeText.size() );
   const int shift = unit == "K" ? 10 : unit == "M" ? 20 : 0;
   if( error != std::errc{} || ( shift == 0 && !unit.empty() ) || size > maxRingSize >> shift ||
       size << shift < minRingSize ) {
      return std::nullopt;
   }
   return Settings{ std::string( text.substr( 0, comma ) ),
                    static_cast< std::uint32_t >( size << shift ) };
}

// Never destroyed: threads trace until the very end of the process.
TraceHandle* handleOfEnvironment() {
   const char* const text = secure_getenv( "FENNET_TRACE" );
   if( !text ) {
      return nullptr;
   }
   auto settings = parseSettings( text );
   if( !settings ) {
      Tessel::Impl::report(
         std::string( "FENNET_TRACE: ignored malformed value \"" ) + text +
         R"(": expected something like "/var/tmp/traces,1M")" );
      return nullptr;
   }
   return new TraceHandle( std::move( settings->folder ), settings->ringSize, true );
}

} // namespace

// Null until the library is loaded.
std::atomic< TraceHandle* > defaultFennetHandle = handleOfEnvironment();

// By handle number; null if the file could not be created.
struct TraceHandle::Files {
   std::map< std::uint64_t, std::unique_ptr< TraceFile > > files;
   Process process;
};

// Returns the files of the calling thread.
TraceHandle::Files& TraceHandle::threadFiles() {
   struct ThreadFiles : Files {
      ~ThreadFiles() {
         threadEnds = true;
         for( const auto& [number, file] : files ) {
            if( file && process == thisProcess() ) {
               keepEnded( file->takePath() );
            }
         }
      }
   };
   thread_local ThreadFiles files;
   return files;
}

TraceHandle::TraceHandle( std::string folder, std::uint32_t ringSize, bool shared )
   : number_( ++handles ),
     folder_( std::move( folder ) ),
     ringSize_( std::bit_ceil( std::clamp( ringSize, minRingSize, maxRingSize ) ) ),
     ownFiles_( shared ? nullptr : new Files ) {}

TraceHandle::~TraceHandle() {
   delete ownFiles_;
}

TraceFile* TraceHandle::mtTraceFile() {
   if( threadEnds ) {
      return nullptr;
   }
   auto& [files, owner] = ownFiles_ ? *ownFiles_ : threadFiles();
   // A child process drops its mappings of the parent's files.
   const Process process = thisProcess();
   if( std::exchange( owner, process ) != process ) {
      files.clear();
   }
   const auto found = files.find( number_ );
   if( found != files.end() ) {
      return found->second.get();
   }
   // The map entry comes first, so that running out of memory leaves no file behind.
   decltype( Files::files ) made;
   auto& file = made[number_];
   file = TraceFile::create( folder_, ringSize_ );
   // Relaxed: the flag only ensures that one thread reports.
   if( !file && !troubleReported_.test_and_set( std::memory_order_relaxed ) ) {
      Tessel::Impl::report(
         "Fennet: cannot create a trace file in \"" + folder_ + "\": " + std::strerror( errno ) +
         "; the thread leaves no records" );
   }
   files.merge( made );
   return file.get();
}

} // namespace Fennet
