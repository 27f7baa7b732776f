// The text traces of the library.
#pragma once

#include <platform/trace/Facility.h>

namespace SodrelTest {

// Enables these levels of both of the library's facilities and no others.
inline void libraryTraceLevelsAre( Orl::TraceLevels levels ) {
   for( const char* const facility : { "Sodrel", "SignalMonitor" } ) {
      Orl::TraceHandle( facility, false ).levelsIs( levels );
   }
}

} // namespace SodrelTest
