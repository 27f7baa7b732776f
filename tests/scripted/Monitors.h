// The three monitors as a table of what they have in common, and the signals that they receive.
#pragma once

#include <scripted/ScriptedTest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace SodrelTest {

struct Monitor {
   const char* name; // without its namespace
   const char* signal;
   const char* types; // read first from the signal
   const char* path;
   const char* interface;
   const char* unit;      // "" or " for " and the unit's path, as traces and exceptions name it
   const char* object;    // the awaited object, or null
   const char* newRecord; // as fieldsOf shows it
   Tessel::Ptr< SignalMonitor > ( *make )( sd_bus* bus );
   Tessel::Ptr< Tessel::Node > ( *dataIs )( SignalMonitor& monitor );
   Tessel::Ptr< Tessel::Node > ( *dataDel )( SignalMonitor& monitor );

   // Waits for the object: "true", "false", or the exception.
   [[nodiscard]] std::string waiting( SignalMonitor& monitor ) const;
   // The exceptions of its wait, except for the words after the phrase.
   [[nodiscard]] std::string waitFailed( const std::string& phrase ) const;
   [[nodiscard]] std::string timeout() const;
   [[nodiscard]] std::string callbackFailed() const;
   [[nodiscard]] std::string forObject() const;
};

inline void PrintTo( const Monitor& monitor, std::ostream* stream ) {
   *stream << monitor.name;
}

extern const Monitor jobRemovedMonitor;      // of jobPath
extern const Monitor daemonReloadingMonitor; // of the manager
extern const Monitor unitReloadingMonitor;   // of fooPath

// A signal of the monitor with other contents.
Signal signalOf( const Monitor& monitor, Content content );
Signal jobRemoved( std::uint32_t id, std::optional< std::string > result );
Signal reloading( bool begins );
// A change of foo.service's ActiveState, or of the given property.
Signal unitBecomes( const char* state );
Signal unitChanged( const Content& properties, const char* interface = unitInterface );
Content activeState( const char* state );

} // namespace SodrelTest
