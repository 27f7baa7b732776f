// The log of a scripted test: sd-bus calls, clock readings and traces, in order.
#pragma once

#include <support/Memory.h>

#include <string>
#include <utility>

namespace SodrelTest {

inline std::string scriptedLog;

// Appends one line to the log.
inline void logLine( const std::string& line ) {
   const UnwatchedMemory unwatched;
   scriptedLog += ( scriptedLog.empty() ? "" : "\n" ) + line;
}

// Returns the lines so far, joined by newlines, and clears the log.
inline std::string takeLog() {
   return std::exchange( scriptedLog, {} );
}

} // namespace SodrelTest
