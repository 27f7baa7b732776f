// What happened in a scripted test, in its order: sd-bus calls, clock readings and traces.
#pragma once

#include <string>

namespace SodrelTest {

// Appends one line to the log.
void logLine( const std::string& line );

// The lines so far, joined by line ends; the log is empty afterwards.
std::string takeLog();

} // namespace SodrelTest
