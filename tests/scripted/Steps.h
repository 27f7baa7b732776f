// The golden sequences: the whole log of an operation, and for each call in it that can fail, the
// effect of its failure. The parts that operations have in common are defined here once.
#pragma once

#include <scripted/Monitors.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace SodrelTest {

// The effect of a failing call.
enum class Failing {
   never,    // not a call that can fail
   reported, // the operation throws
   ignored,  // none
   renewing, // a probe: the connection is replaced
};

// One line of a log. In the texts, {errno}, {message} and so on stand for the cause: see caused.
struct Step {
   std::string line;
   Failing failing = Failing::never;
   std::string exception{};            // where it is ignored: of the next failure
   std::vector< std::string > after{}; // the lines that follow its failure
};

using Steps = std::vector< Step >;

Steps join( std::initializer_list< Steps > parts );
// The words of a call: the method and its strings.
std::vector< Tessel::String > split( const std::string& words );
// Their lines, joined by newlines.
std::string logOf( const Steps& steps );

extern const char* const noBus; // the exception of a missing connection

// A trace at level 8 of the client.
Steps traced( const std::string& operation, const std::string& text );
// The probe of the connection, when it succeeds.
Steps probed();
// A read of a string or, with reply, a boolean; named in the exception by `subject`.
Steps stringRead(
   const std::string& object, const char* property, const std::string& exception,
   const char* bus = "bus1", const std::vector< std::string >& after = {} );
// An asynchronous call of "METHOD", "METHOD S" or "METHOD S1 S2", whose reply has that number.
Steps sent( const std::string& words, int reply = 1 );
// The lifetime of a monitor.
Steps begun( const Monitor& monitor );
Steps ended( const Monitor& monitor );
// A whole wait whose passes read these signals.
Steps waited( const Monitor& monitor, std::initializer_list< Steps > passes );
// Reading a signal of the monitor, other than a unit's.
Steps signalRead( const Monitor& monitor );
// Reading a change of these properties of a unit.
Steps changeRead( std::initializer_list< std::string > properties );

} // namespace SodrelTest
