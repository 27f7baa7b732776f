// What happened in a scripted test, in its order: sd-bus calls, clock readings and traces.
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

// The lines so far, joined by line ends; the log is empty afterwards.
inline std::string takeLog() {
   return std::exchange( scriptedLog, {} );
}

} // namespace SodrelTest
