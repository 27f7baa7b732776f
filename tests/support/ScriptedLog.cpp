// The log of scripted tests.
#include <support/ScriptedLog.h>

#include <support/ScriptedMemory.h>

#include <utility>

namespace SodrelTest {

namespace {

std::string& log() {
   static std::string lines;
   return lines;
}

} // namespace

void logLine( const std::string& line ) {
   const NotLibrary notLibrary;
   if( !log().empty() ) {
      log() += '\n';
   }
   log() += line;
}

std::string takeLog() {
   return std::exchange( log(), {} );
}

} // namespace SodrelTest
