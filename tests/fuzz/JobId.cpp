// Fuzzes the parsing of a job's object path.
#include "PrivateConnection.h"

#include <Sodrel/SignalMonitor.h>

namespace SodrelTest {

namespace {

// Returns the number in a path: its leading digits, if there are any and they fit.
std::optional< std::uint64_t > numberIn( std::string_view path ) {
   const std::string_view start = "/org/freedesktop/systemd1/job/";
   if( !path.starts_with( start ) ) {
      return std::nullopt;
   }
   const std::string_view rest = path.substr( start.size() );
   return numberOf( rest.substr( 0, rest.find_first_not_of( "0123456789" ) ), 0xffff'ffff );
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
