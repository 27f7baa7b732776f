// The process's facilities and what TESSEL_TRACE enables in them.
#include <platform/trace/Facility.h>

#include <platform/trace/Line.h>

#include <charconv>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace Orl {

namespace {

using LevelsByName = std::map< std::string, TraceLevels, std::less<> >;

// Cuts the text before the first `separator` off `rest`, and the separator with it.
std::string_view cutBefore( char separator, std::string_view& rest ) {
   const std::size_t end = rest.find( separator );
   const std::string_view first = rest.substr( 0, end );
   rest.remove_prefix( end == std::string_view::npos ? rest.size() : end + 1 );
   return first;
}

std::optional< TraceLevels > parseLevels( std::string_view text ) {
   if( text == "*" ) {
      return allTraceLevels;
   }
   TraceLevels levels = 0;
   for( bool more = true; more; ) {
      more = text.find( ',' ) != std::string_view::npos;
      const std::string_view word = cutBefore( ',', text );
      unsigned level = 0;
      const auto [end, error] = std::from_chars( word.data(), word.data() + word.size(), level );
      if( error != std::errc{} || end != word.data() + word.size() || level > 31 ) {
         return std::nullopt;
      }
      levels |= TraceLevels{ 1 } << level;
   }
   return levels;
}

std::optional< LevelsByName > parseFacilities( std::string_view text ) {
   LevelsByName facilities;
   while( !text.empty() ) {
      std::string_view levelsText = cutBefore( ';', text );
      const std::string_view name = cutBefore( '=', levelsText );
      const auto levels = parseLevels( levelsText );
      if( name.empty() || !levels ) {
         return std::nullopt;
      }
      facilities[std::string( name )] |= *levels;
   }
   return facilities;
}

LevelsByName levelsOfEnvironment() {
   const char* const value = secure_getenv( "TESSEL_TRACE" );
   const std::string_view text = value ? value : "";
   if( auto facilities = parseFacilities( text ) ) {
      return *std::move( facilities );
   }
   Tessel::Impl::report( { "TESSEL_TRACE has the malformed value \"", text,
                           "\" and enables nothing; it is written like "
                           "\"Sodrel=5,8;SignalMonitor=*\"" } );
   return {};
}

// Never destroyed, because handles are used until the very end of the process.
class Facilities {
 public:
   static Facilities& instance() {
      static auto* const facilities = new Facilities;
      return *facilities;
   }

   std::atomic< TraceLevels >& levels( std::string_view name ) {
      const std::scoped_lock lock( mutex_ );
      const auto found = levels_.find( name );
      return found != levels_.end() ? found->second : levels_[std::string( name )];
   }

 private:
   Facilities() {
      for( const auto& [name, levels] : levelsOfEnvironment() ) {
         levels_[name] = levels;
      }
   }

   std::mutex mutex_;
   std::map< std::string, std::atomic< TraceLevels >, std::less<> > levels_;
};

} // namespace

TraceHandle::TraceHandle( const char* name, bool allLevels )
   : name_( name ), levels_( &Facilities::instance().levels( name ) ) {
   if( allLevels ) {
      levelsIs( allTraceLevels );
   }
}

TraceLevels traceLevels( std::string_view facility ) {
   return Facilities::instance().levels( facility ).load( std::memory_order_relaxed );
}

void traceLevelsIs( std::string_view facility, TraceLevels levels ) {
   Facilities::instance().levels( facility ).store( levels, std::memory_order_relaxed );
}

} // namespace Orl
