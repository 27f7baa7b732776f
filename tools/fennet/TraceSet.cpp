// Merging files: all files of a boot share one clock, so that records keep the monotonic order.
#include "TraceSet.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <queue>
#include <system_error>
#include <utility>

#include <csignal>

namespace Fennet {

namespace {

// Converts a time on the monotonic clock to the time of day in nanoseconds since 1970, limited to
// the range from 0 to the maximum, because a file may contain anything.
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
      files_.push_back( { path, TraceReader( bytesOf( path ) ), nullptr } );
   } catch( const std::system_error& error ) {
      complain_( error.what() );
   }
}

void TraceSet::addFolder( const std::filesystem::path& folder ) {
   std::set< std::filesystem::path > paths; // sorted by name
   try {
      for( const auto& entry : std::filesystem::directory_iterator( folder ) ) {
         if( entry.path().extension() == ".fennet" ) {
            paths.insert( entry.path() );
         }
      }
   } catch( const std::filesystem::filesystem_error& error ) {
      complain_( folder.string() + ": " + error.code().message() );
   }
   for( const auto& path : paths ) {
      addFile( path );
   }
}

// Runs `read` on the file's reader. If that fails, the file is read no further.
template< typename Read >
void TraceSet::attempt( File& file, const Read& read ) {
   if( file.damaged ) {
      return;
   }
   try {
      read( file.reader );
   } catch( const Damage& damage ) {
      file.damaged = true;
      complain_( file.path + ": " + damage.what() );
   } catch( const std::system_error& error ) {
      file.damaged = true;
      complain_( error.what() );
   }
}

void TraceSet::read( const std::function< void( const TimedRecord& ) >& take ) {
   for( const auto& folder : folders_ ) {
      addFolder( folder );
   }
   // The latest pair of clock readings of each boot, used for all its files; a process that could
   // not read the id of its boot has its own.
   std::map< std::string, ClockPair > clocks;
   const auto bootOf = []( const File& file ) {
      return file.origin->bootId.empty() ? file.path : file.origin->bootId;
   };
   for( File& file : files_ ) {
      attempt( file, [&]( TraceReader& reader ) {
         if( !reader.refresh() ) {
            return;
         }
         if( !file.origin ) {
            file.origin = std::make_shared< const TraceReader::Origin >( reader.origin() );
         }
         ClockPair& latest = clocks.try_emplace( bootOf( file ), reader.clocks() ).first->second;
         if( reader.clocks().monotonic > latest.monotonic ) {
            latest = reader.clocks();
         }
      } );
   }
   // The next record of each file, and the files by time; on a tie, the earlier file comes first.
   std::vector< Record > records( files_.size() );
   using Entry = std::pair< std::int64_t, std::size_t >;
   std::priority_queue< Entry, std::vector< Entry >, std::greater<> > order;
   const auto advance = [&]( std::size_t index ) {
      File& file = files_[index];
      attempt( file, [&]( TraceReader& reader ) {
         if( auto record = reader.next() ) {
            order.emplace( timeOfDay( record->time, clocks[bootOf( file )] ), index );
            records[index] = *std::move( record );
         }
      } );
   };
   for( std::size_t index = 0; index < files_.size(); ++index ) {
      advance( index );
   }
   while( !order.empty() ) {
      const auto [time, index] = order.top();
      order.pop();
      take( { time, files_[index].origin, std::move( records[index] ) } );
      advance( index );
   }
}

bool TraceSet::mayGrow() const {
   return !folders_.empty() || std::any_of( files_.begin(), files_.end(), []( const File& file ) {
      return !file.damaged &&
             ( !file.origin || kill( file.origin->pid, 0 ) == 0 || errno == EPERM );
   } );
}

} // namespace Fennet
