// Sending the signals of an input, and the hurried clock.
#include "Wait.h"

#include <chrono>

namespace {

// Since the wait began.
int readings = 0;

} // namespace

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
   constexpr std::chrono::seconds limit( 600 );
   constexpr std::chrono::microseconds left( 1 );
   const nanoseconds reading[] = { nanoseconds( 0 ), limit - left, limit };
   return time_point( reading[std::min( readings++, 2 )] );
}

namespace Sodrel::Fuzz {

void sendSignals( PrivateConnection& connection, const Header& header, Input& input ) {
   constexpr int most = 64;
   for( int sent = 0; sent < most && !input.empty(); ++sent ) {
      connection.send( header, takeBody( input ) );
   }
}

std::string outcomeOf( SignalMonitor& monitor, const Orl::Optional< Tessel::String >& object ) {
   readings = 0;
   try {
      return monitor.wait( object ) ? "true" : "false";
   } catch( const Exception& exception ) {
      return std::string( exception.name() ) + ": " + exception.what();
   }
}

} // namespace Sodrel::Fuzz
