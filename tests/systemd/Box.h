// What the tests on a real systemd share: looking at it, and disturbing it, from outside the
// library.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>
#include <platform/trace/TextTrace.h>
#include <support/BusPointers.h>

namespace Sodrel::Test {

// Runs a shell command; systemctl reaches the manager without the bus. Returns what the command
// wrote, without the line end. Throws std::runtime_error if the command fails.
std::string run( const std::string& command );

// Kills the bus as a crash would, and waits until systemd has noticed. Its socket still listens,
// and the next client to connect starts the bus anew.
void killBus();

// Whether the bus has subscribed to systemd's signals, so that every client gets them: the launcher
// of dbus-broker 33 has, that of 26 and dbus-daemon have not.
bool busHasSubscribed();

std::string text( const Tessel::String& string );

inline constexpr const char* nothingThrown = "(nothing thrown)";

// The text of the exception, which must be an Error, that the operation throws.
template< typename Error, typename Operation >
std::string thrownBy( const Operation& operation ) {
   try {
      operation();
   } catch( const Error& error ) {
      return error.what();
   }
   return nothingThrown;
}

// Sets the monitor's time limit.
void limitIs( SignalMonitor& monitor, std::uint64_t nanoseconds );

// Holds back a unit that reads a line from a FIFO before it goes on. A unit that comes to the gate
// more than once makes the FIFO if it is missing.
class Gate {
 public:
   // Makes the FIFO unless the unit has made it.
   explicit Gate( std::string path );
   Gate( const Gate& ) = delete;
   Gate& operator=( const Gate& ) = delete;
   ~Gate();

   // Waits until some process has come to the gate.
   void await();

   // Waits likewise, then lets the process go on, and returns when it has left the gate.
   void pass();

 private:
   void make() const;

   std::string path;
   int writeEnd = -1;
};

// A client of the manager besides the library. It has called "Subscribe", which serves everybody.
class Observer {
 public:
   // What JobRemoved said of a job.
   struct Ended {
      std::string job;
      std::string unit;
      std::string result;
   };

   Observer();

   // Collects the unit's ActiveState from now on, each one that differs from the one before. The
   // first is that of the unit before the job.
   void watch( const std::string& unit );

   // Waits until the job has ended, and returns its result. By then, the bus has handed all that
   // the manager signalled before to its other clients as well.
   std::string resultOf( const std::string& job );

   // Waits until some job of the unit has ended.
   Ended lastJobOf( const std::string& unit );

   // What has been collected when the job ends.
   const std::vector< std::string >& statesUntilEndOf( const std::string& job );

 private:
   static int onJobRemoved( sd_bus_message* signal, void* observer, sd_bus_error* error );
   static int onPropertiesChanged( sd_bus_message* signal, void* observer, sd_bus_error* error );
   void pump();

   BusPtr bus;
   std::vector< Ended > ended;
   std::vector< std::string > states;
};

// Collects the text traces of one facility at all levels, as "operation/level: text".
class CollectedTraces : public Tessel::TraceSink {
 public:
   explicit CollectedTraces( const char* facility );
   CollectedTraces( const CollectedTraces& ) = delete;
   CollectedTraces& operator=( const CollectedTraces& ) = delete;
   ~CollectedTraces();

   void traceIs( const Tessel::TextTrace& trace ) override;
   const std::vector< std::string >& lines() const { return collected; }
   void clear() { collected.clear(); }

   // Does something when this line is traced.
   void when( const std::string& line, std::function< void() > action );

 private:
   const char* facility;
   std::vector< std::string > collected;
   std::map< std::string, std::function< void() > > actions;
};

// A client without a subscription of its own. Each test counts on a systemd that no other test has
// used, as ctest gives it.
class AClient : public ::testing::Test {
 protected:
   // Calls a unit method and waits for its outcome.
   std::string call( const std::string& method, const std::string& unit );
   // Sends a unit method and returns the job's path.
   std::string send( const std::string& method, const std::string& unit );
   std::string stateOf( const std::string& unit );

   Tessel::Ptr< Sdbus > client = sdbusFactory();
};

} // namespace Sodrel::Test
