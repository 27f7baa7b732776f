// Fuzzes the reading of a job's object path.
#include "PrivateConnection.h"

#include <Sodrel/SignalMonitor.h>

#include <optional>

namespace SodrelTest {

namespace {

// The number that a path names: that of its leading digits, if there are any and they fit.
std::optional< std::uint32_t > numberIn( std::string_view path ) {
   const std::string_view start = "/org/freedesktop/systemd1/job/";
   if( !path.starts_with( start ) ) {
      return std::nullopt;
   }
   const std::string_view rest = path.substr( start.size() );
   const std::size_t digits = std::min( rest.find_first_not_of( "0123456789" ), rest.size() );
   std::uint64_t number = 0;
   for( const char digit : rest.substr( 0, digits ) ) {
      number = number * 10 + static_cast< std::uint64_t >( digit - '0' );
      if( number > 0xffff'ffff ) {
         return std::nullopt;
      }
   }
   return digits > 0 ? std::optional( static_cast< std::uint32_t >( number ) ) : std::nullopt;
}

} // namespace

void fuzz( Input input ) {
   static const PrivateConnection connection;
   static const auto monitor = Sodrel::jobRemovedMonitorFactory( connection.bus() );
   const std::string_view path = input.rest();
   const auto expected = numberIn( path );
   try {
      const std::uint32_t number = monitor->parseJobId( Tessel::String( path ) );
      require( expected && number == *expected, "the number is that of the leading digits" );
   } catch( const Sodrel::SdbusJobException& exception ) {
      require( !expected, "a path with a number can be read" );
      const std::string text =
         std::string( "JobRemovedMonitor::parseJobId, failed to parse job: " ).append( path );
      requireSame( exception.what(), text.c_str() );
   }
   require(
      monitor->isUnitObject( Tessel::String( path ) ) ==
         path.starts_with( "/org/freedesktop/systemd1/unit/" ),
      "a unit's path starts like one" );
}

} // namespace SodrelTest
