// What the tests on a real systemd share: looking at it, and disturbing it, without the library.
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

namespace SodrelTest {

using namespace Sodrel;

// Runs a shell command; systemctl reaches the manager without the bus. Returns the command's output
// without the line end. Throws std::runtime_error if the command fails.
std::string run( const std::string& command );

// A property of a unit as systemctl reads it.
std::string shown( const std::string& property, const std::string& unit );

// Kills the bus as a crash would, and waits until systemd has noticed. Its socket still listens,
// and the next client to connect starts the bus anew.
void killBus();

// Whether the bus is dbus-broker, else it is dbus-daemon.
bool busIsBroker();

// Whether the bus has subscribed to systemd's signals, so that every client gets them: the launcher
// of dbus-broker 33 has, that of 26 and dbus-daemon have not.
bool busHasSubscribed();

std::string text( const Tessel::String& string );

// Name and text of the exception that the operation throws, or "nothing".
std::string thrownBy( const std::function< void() >& operation );

// What a monitor's wait does within 50 ms: the text of its time-out, of another exception or, if it
// returns, "nothing".
std::string shortWait( SignalMonitor& monitor, const std::string& object = "" );

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

   std::string path_;
   int writeEnd_ = -1;
};

// A client of the manager besides the library. It has called "Subscribe", which serves all clients.
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

   // The states that have been collected when the job ends, separated by blanks.
   std::string statesUntilEndOf( const std::string& job );

 private:
   static int onJobRemoved( sd_bus_message* signal, void* observer, sd_bus_error* error );
   static int onPropertiesChanged( sd_bus_message* signal, void* observer, sd_bus_error* error );
   void match(
      const char* path, const char* interface, const char* member,
      sd_bus_message_handler_t handler );
   MessagePtr call( const char* method, const char* types, const char* argument );
   Ended await( const std::function< bool( const Ended& ) >& isIt );

   BusPtr bus_;
   std::vector< Ended > ended_;
   std::vector< std::string > states_;
};

// Collects the text traces of facilities at all levels, as "operation/level: text".
class CollectedTraces : public Tessel::TraceSink {
 public:
   explicit CollectedTraces( std::vector< const char* > facilities );
   CollectedTraces( const CollectedTraces& ) = delete;
   CollectedTraces& operator=( const CollectedTraces& ) = delete;
   ~CollectedTraces();

   void traceIs( const Tessel::TextTrace& trace ) override;
   const std::vector< std::string >& lines() const { return collected_; }
   void clear() { collected_.clear(); }

   // Does something when this line is traced.
   void when( const std::string& line, std::function< void() > action );

 private:
   std::vector< const char* > facilities_;
   std::vector< std::string > collected_;
   std::map< std::string, std::function< void() > > actions_;
};

// Has the rights of the user "daemon" in place of root's for as long as it lives; so has what is
// connected meanwhile.
class WithoutRights {
 public:
   WithoutRights();
   WithoutRights( const WithoutRights& ) = delete;
   WithoutRights& operator=( const WithoutRights& ) = delete;
   ~WithoutRights();
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

} // namespace SodrelTest
