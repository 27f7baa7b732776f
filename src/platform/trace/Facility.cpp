// The process's facilities and what TESSEL_TRACE enables in them.
#include <platform/trace/Facility.h>

#include <platform/trace/Line.h>
#include <platform/value/LockedByForks.h>

#include <charconv>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace Orl {

namespace {

// Removes the text before the first `separator`, and the separator, from `rest`; returns the text.
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

std::optional< std::map< std::string, TraceLevels > > parseFacilities( std::string_view text ) {
   std::map< std::string, TraceLevels > facilities;
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

// The shared levels of each facility. Elements are only added, so references to them stay valid.
using Facilities = std::map< std::string, std::atomic< TraceLevels > >;

Facilities* facilitiesOfEnvironment() {
   const char* const text = secure_getenv( "TESSEL_TRACE" );
   const auto parsed = parseFacilities( text ? text : "" );
   if( !parsed ) {
      Tessel::Impl::report(
         std::string( "TESSEL_TRACE: ignored malformed value \"" ) + text +
         R"(": expected something like "Sodrel=5,8;SignalMonitor=*")" );
      return new Facilities;
   }
   return new Facilities( parsed->begin(), parsed->end() );
}

constinit std::mutex mutex;
[[maybe_unused]] const int mutexIsLockedByForks = Tessel::Impl::lockedByForks< mutex >();
// Created on first use and never destroyed: handles are used until the very end of the process.
constinit Facilities* sharedLevels = nullptr;

} // namespace

std::atomic< TraceLevels >& TraceHandle::find() const {
   const std::scoped_lock lock( mutex );
   if( !sharedLevels ) {
      sharedLevels = facilitiesOfEnvironment();
   }
   auto& levels = ( *sharedLevels )[name_];
   // Release: a thread that sees the pointer also sees the levels that it points to.
   shared_.store( &levels, std::memory_order_release );
   return levels;
}

} // namespace Orl
