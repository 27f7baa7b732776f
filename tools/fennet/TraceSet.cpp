// Merging files: one clock for all files of a boot, so that their order is that of their ticks.
#include "TraceSet.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

#include <csignal>

namespace Fennet {

namespace {

// The clock of one boot: what its earliest and its latest reading say about ticks.
class BootClock {
 public:
   void add( const TraceReader& reader ) {
      if( !known_ || reader.firstReading().ticks < first_.ticks ) {
         first_ = reader.firstReading();
      }
      if( !known_ || reader.lastReading().ticks > last_.ticks ) {
         last_ = reader.lastReading();
      }
      known_ = true;
   }

   // Long double holds 64 bits, so nanoseconds since 1970 stay exact; clamped, for a file may claim
   // anything.
   [[nodiscard]] std::int64_t realtime( std::uint64_t ticks ) const {
      const long double elapsed = distance( last_.ticks, ticks );
      const long double span = distance( first_.ticks, last_.ticks );
      const long double spanTime = static_cast< long double >( last_.monotonic ) -
                                   static_cast< long double >( first_.monotonic );
      const long double rate = span > 0 ? spanTime / span : 1;
      const long double time = static_cast< long double >( last_.realtime ) + elapsed * rate;
      constexpr long double year2262 = 9.2e18L;
      return static_cast< std::int64_t >( std::clamp( time, 0.0L, year2262 ) );
   }

 private:
   static long double distance( std::uint64_t from, std::uint64_t to ) {
      return to >= from ? static_cast< long double >( to - from )
                        : -static_cast< long double >( from - to );
   }

   bool known_ = false;
   ClockReading first_{};
   ClockReading last_{};
};

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
   std::map< std::string, BootClock > clocks;
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
         clocks[file.reader.origin().bootId].add( file.reader );
      }
   }
   for( TimedRecord& record : records ) {
      record.time = clocks[record.origin->bootId].realtime( record.record.ticks );
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
