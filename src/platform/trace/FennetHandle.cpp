// The files of each thread, what a fork does to them, and the default handle.
#include <platform/trace/FennetHandle.h>

#include <platform/trace/Line.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <pthread.h>

namespace Fennet {

constinit thread_local Impl::LastUsed Impl::lastUsed = {};

namespace {

constinit std::atomic< std::uint64_t > lastHandleNumber = 0;

// Changed only in the child of a fork, while it has a single thread.
constinit unsigned forks = 0;

constinit thread_local bool threadEnds = false;

// This thread's files by the number of their handle; null where none could be made.
struct ThreadFiles {
   std::vector< std::pair< std::uint64_t, std::unique_ptr< TraceFile > > > files;

   ~ThreadFiles() {
      threadEnds = true;
      Impl::lastUsed = {};
   }
};
thread_local ThreadFiles threadFiles;

// The files of the parent stay the parent's: the child drops its mappings of them.
void forgetFilesAfterFork() {
   ++forks;
   Impl::lastUsed = {};
   threadFiles.files.clear();
}

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
   const char* text = secure_getenv( "FENNET_TRACE" );
   if( !text ) {
      return nullptr;
   }
   auto settings = parseSettings( text );
   if( !settings ) {
      Tessel::Impl::report( { "FENNET_TRACE has the malformed value \"", text,
                              "\" and traces nothing; it is written like "
                              "\"/var/tmp/traces,1M\"" } );
      return nullptr;
   }
   return new TraceHandle( std::move( settings->folder ), settings->ringSize, true );
}

} // namespace

constinit std::atomic< TraceHandle* > defaultFennetHandle = nullptr;

namespace {

[[maybe_unused]] const bool loaded = [] {
   pthread_atfork( nullptr, nullptr, forgetFilesAfterFork );
   // Release: whoever sees the handle sees it whole.
   defaultFennetHandle.store( handleOfEnvironment(), std::memory_order_release );
   return true;
}();

} // namespace

TraceHandle::TraceHandle( std::string folder, std::uint32_t ringSize, bool shared )
   : number_( lastHandleNumber.fetch_add( 1, std::memory_order_relaxed ) + 1 ),
     folder_( std::move( folder ) ),
     ringSize_( std::bit_ceil( std::clamp( ringSize, minRingSize, maxRingSize ) ) ),
     shared_( shared ),
     ownFileForks_( forks - 1 ) {}

TraceHandle::~TraceHandle() = default;

TraceFile* TraceHandle::findTraceFile() {
   if( threadEnds ) {
      return nullptr;
   }
   TraceFile* file = nullptr;
   if( shared_ ) {
      auto& files = threadFiles.files;
      auto found = std::find_if(
         files.begin(), files.end(), [&]( const auto& entry ) { return entry.first == number_; } );
      if( found == files.end() ) {
         found = files.emplace( files.end(), number_, makeTraceFile() );
      }
      file = found->second.get();
   } else {
      if( ownFileForks_ != forks ) {
         ownFile_ = makeTraceFile();
         ownFileForks_ = forks;
      }
      file = ownFile_.get();
   }
   Impl::lastUsed = { number_, file };
   return file;
}

std::unique_ptr< TraceFile > TraceHandle::makeTraceFile() {
   const Tessel::Impl::KeepErrno keepErrno;
   auto file = TraceFile::create( folder_, ringSize_ );
   // Relaxed: only the first to report counts.
   if( !file && !troubleReported_.exchange( true, std::memory_order_relaxed ) ) {
      Tessel::Impl::report( { "Fennet: no trace file can be made in \"", folder_,
                              "\": ", strerror( errno ), "; the thread leaves no records" } );
   }
   return file;
}

} // namespace Fennet
