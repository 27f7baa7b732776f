// A scripted sd-bus: the sd_bus_* functions that the library calls are replaced by name.
//
// Each call is logged with all its arguments as one line. Without a script, a function behaves as
// with a healthy bus and systemd; a script gives single calls other results. All objects are
// tracked from creation to release; using or releasing one after that fails the test.
#pragma once

#include <support/ScriptedMessage.h>

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

// The definitions of sd-bus's connections and slots.
struct sd_bus {
   std::string name;
   bool open = true;      // and owned by the library
   std::size_t slots = 0; // each keeps the connection object alive

   [[nodiscard]] bool gone() const { return !open && slots == 0; }
};

struct sd_bus_slot {
   std::string name;
   sd_bus* bus;
   std::string path;
   std::string interface;
   std::string member;
   sd_bus_message_handler_t callback;
   void* userdata;
   bool released = false;

   [[nodiscard]] bool gone() const { return released; }
};

namespace SodrelTest {

struct Signal {
   std::string path;
   std::string interface;
   std::string member;
   Content content;
};

// The behaviour of one call.
struct Answer {
   int result = 0;
   // The error that the caller's sd_bus_error is filled with.
   std::optional< std::string > errorName{};
   std::optional< std::string > errorMessage{};
   std::optional< std::string > text{}; // of a string property
   std::optional< Content > reply{};    // of a method call or another property
   std::vector< Signal > signals{};     // dispatched by sd_bus_process
   bool certain = false;                // whatever the script says
};

// The call fails with the error number and, if there is a message, with a D-Bus error.
Answer fails( int error );
Answer fails( int error, std::string message );
// A string property has the value.
Answer gives( std::string text );
// A call or a property read returns the content.
Answer replies( Content content );
// sd_bus_process dispatches the signals and reports that there may be more to do.
Answer dispatches( std::vector< Signal > signals );

// While one exists, it determines the behaviour of the sd_bus_* functions.
class ScriptedSdbus {
 public:
   ScriptedSdbus();
   ~ScriptedSdbus();
   ScriptedSdbus( const ScriptedSdbus& ) = delete;
   ScriptedSdbus& operator=( const ScriptedSdbus& ) = delete;

   // Scripts the next call of a function; further answers are for its later calls. A property read
   // without an sd_bus_error has the name "probe".
   void next( const std::string& function, Answer answer );
   // The functions with answers that no call has taken, separated by blanks.
   [[nodiscard]] std::string leftOver() const;
   void forgetLeftOver();

   // Makes the call with that number, counted from 1 from now on, fail; with `forEver`, all later
   // ones too. All functions count that can report failure. 0: no call fails.
   void faultIs( std::size_t number, bool forEver = false, Answer fault = {} );
   // The lines of the calls that have failed since then.
   [[nodiscard]] const std::vector< std::string >& faults() const { return faults_; }

   // The objects that were created and not released, separated by blanks.
   [[nodiscard]] std::string alive() const;

   // For tests that take the library's part.
   sd_bus* newBus();
   sd_bus_message* newReply( Content content );
   void errorIs( sd_bus_error* error, const Answer& answer );

   // The slots in the order of their creation.
   [[nodiscard]] const std::vector< std::unique_ptr< sd_bus_slot > >& slots() const {
      return slots_;
   }

   // For the replaced functions. Each of them calls `called`, which logs the call and returns the
   // behaviour that the script or the fault determines, otherwise `usual`.
   Answer called( const char* function, const std::string& arguments, Answer usual );
   sd_bus_slot* newSlot( sd_bus_slot slot );
   char* newText( const std::string& text );
   void dispatch( sd_bus* bus, const Signal& signal );
   [[nodiscard]] bool expectsMore( const std::string& function ) const;
   // Names for the log. They fail the test if the object has been released.
   std::string nameOf( const sd_bus* bus ) const;
   std::string nameOf( const sd_bus_slot* slot ) const;
   std::string nameOf( const sd_bus_message* message ) const;
   void released( sd_bus* bus );
   void released( sd_bus_slot* slot );
   void released( sd_bus_message* message );
   void errorFreed( sd_bus_error* error );
   void textFreed( void* text );

 private:
   std::map< std::string, std::deque< Answer > > answers_;
   std::vector< std::unique_ptr< sd_bus > > buses_;
   std::vector< std::unique_ptr< sd_bus_slot > > slots_;
   std::vector< std::unique_ptr< sd_bus_message > > replies_;
   std::vector< std::unique_ptr< sd_bus_message > > signals_;
   std::map< const void*, std::string > texts_;
   std::size_t errors_ = 0;
   std::size_t calls_ = 0;
   std::size_t faultNumber_ = 0;
   bool faultForEver_ = false;
   Answer fault_;
   std::vector< std::string > faults_;
};

// Returns the existing script; without one, the test process ends.
ScriptedSdbus& scriptedSdbus();

} // namespace SodrelTest
