// Merging files: one clock for all files of a boot, so that their order is that of their ticks.
#include "TraceSet.h"

#include <algorithm>
#include <limits>
#include <map>
#include <system_error>
#include <utility>

#include <csignal>

namespace Fennet {

namespace {

// The time of day, in nanoseconds since 1970, of a time on the monotonic clock; at most the largest
// and at least 0, for a file may claim anything.
std::int64_t timeOfDay( std::int64_t monotonic, const ClockPair& clocks ) {
   std::int64_t sinceReading = 0;
   std::int64_t time = 0;
   if( __builtin_sub_overflow( monotonic, clocks.monotonic, &sinceReading ) ||
       __builtin_add_overflow( clocks.realtime, sinceReading, &time ) ) {
      return monotonic < clocks.monotonic ? 0 : std::numeric_limits< std::int64_t >::max();
   }
   return std::max< std::int64_t >( time, 0 );
}

} // namespace

TraceSet::TraceSet( std::function< void( const std::string& ) > complain )
   : complain_( std::move( complain ) ) {}

void TraceSet::add( const std::filesystem::path& path ) {
   std::error_code error;
   if( std::filesystem::is_directory( path, error ) ) {
      folders_.push_back( path );
   } else {
      addFile( path );
   }
}

void TraceSet::addFile( const std::filesystem::path& path ) {
   if( !known_.insert( path ).second ) {
      return;
   }
   try {
      files_.push_back( { path, TraceReader( bytesOf( path ) ) } );
   } catch( const std::system_error& error ) {
      complain_( error.what() );
   }
}

void TraceSet::addFolder( const std::filesystem::path& folder ) {
   std::error_code error;
   std::filesystem::directory_iterator entries( folder, error );
   std::set< std::filesystem::path > paths; // in the order of their names
   while( !error && entries != std::filesystem::directory_iterator() ) {
      if( entries->path().extension() == ".fennet" ) {
         paths.insert( entries->path() );
      }
      entries.increment( error );
   }
   if( error ) {
      complain_( folder.string() + ": " + error.message() );
   }
   for( const auto& path : paths ) {
      addFile( path );
   }
}

std::vector< TimedRecord > TraceSet::read() {
   for( const auto& folder : folders_ ) {
      addFolder( folder );
   }
   std::vector< TimedRecord > records;
   // By boot: its latest pair of clock readings serves all its files, so that their records keep
   // the order of the monotonic clock.
   std::map< std::string, ClockPair > clocks;
   for( File& file : files_ ) {
      if( file.damaged ) {
         continue;
      }
      std::shared_ptr< const TraceReader::Origin > origin;
      try {
         file.reader.read( [&]( Record record ) {
            if( !origin ) {
               origin = std::make_shared< const TraceReader::Origin >( file.reader.origin() );
            }
            records.push_back( { 0, origin, std::move( record ) } );
         } );
      } catch( const Damage& damage ) {
         file.damaged = true;
         complain_( file.path + ": " + damage.what() );
      } catch( const std::system_error& error ) {
         file.damaged = true;
         complain_( error.what() );
      }
      if( file.reader.begun() ) {
         ClockPair& latest =
            clocks.try_emplace( file.reader.origin().bootId, file.reader.clocks() ).first->second;
         if( file.reader.clocks().monotonic > latest.monotonic ) {
            latest = file.reader.clocks();
         }
      }
   }
   for( TimedRecord& record : records ) {
      record.time = timeOfDay( record.record.time, clocks[record.origin->bootId] );
   }
   std::stable_sort(
      records.begin(), records.end(),
      []( const TimedRecord& left, const TimedRecord& right ) { return left.time < right.time; } );
   return records;
}

bool TraceSet::mayGrow() const {
   return !folders_.empty() || std::any_of( files_.begin(), files_.end(), []( const File& file ) {
      const pid_t pid = file.reader.origin().pid;
      return !file.damaged && ( !file.reader.begun() || kill( pid, 0 ) == 0 || errno == EPERM );
   } );
}

} // namespace Fennet
