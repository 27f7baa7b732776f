// The client of the machine's systemd manager: its connection, property reads and method calls.
//
// The layers: callers -> Sdbus -> signal monitors -> sd-bus -> the system bus -> systemd.
#pragma once

#include <Sodrel/Exceptions.h>

#include <platform/entity/Entity.h>
#include <platform/types/TypeData.h>
#include <platform/value/String.h>
#include <platform/value/VoidPtr.h>

struct sd_bus;

// The type data of Sdbus.
extern TESSEL_EXPORT const Tessel::ModuleInspectData _Sodrel_c4788d5e_orlModule;

namespace Sodrel {

// One connection to the system bus and the operations of the systemd manager on it.
//
// Names and D-Bus types of methods, properties and signals: org.freedesktop.systemd1(5).
//
// Every operation first asks systemd for "SystemState" on the connection; when that fails for
// whatever reason, the connection is closed and a new one opened. What was tied to the old one is
// gone with it: monitors made on it, the subscription of the manager method "Subscribe", and
// limits set on the sd_bus object. A method call or read waits for its reply as long as sd-bus
// does by default, 25 s.
//
// Owns its connection. Throws: each operation may throw NoSdbusException; std::bad_alloc passes.
// After any exception the entity can be used on.
// Thread: one thread at a time; callers who share an entity serialise.
class TESSEL_EXPORT Sdbus : public Tessel::Node {
   TESSEL_ENTITY( Sdbus )

 public:
   // Use sdbusFactory.
   Sdbus();

   // Calls a manager method without arguments and, unless `async`, waits until its effect is
   // reported. Only "Reload" can be waited for: until the manager says that it has reloaded.
   //
   // systemd sends that word only while some client of the bus has called "Subscribe"; on a machine
   // where nobody has, do so first with managerCall( "Subscribe", true ), and again after a
   // reconnection.
   // Throws SdbusCallException; when waiting, SdbusSyncException for any other method (nothing is
   // sent then), a bus that fails during the wait, or 600 s without the word.
   // Ends the process when two reloads in a row end without their start having been seen.
   void managerCall( const Tessel::String& method, bool async );
   // Calls a manager method with one string that queues a job, and returns the job's object path.
   // Unless `async`, waits until the job has ended; needs no "Subscribe".
   //
   // Throws SdbusCallException, SdbusMessageException; when waiting, SdbusJobException for a job
   // result other than "done" and "skipped", SdbusSyncException for a bus that fails during the
   // wait or 600 s without the job's end.
   Orl::String managerCallSO( const Tessel::String& method, const Tessel::String& s, bool async );
   // Calls a manager method with two strings, as a rule a unit's name and a job mode ("replace",
   // "fail", ...), and returns the job's object path.
   //
   // Unless `async`, waits: for "ReloadUnit" and "ReloadOrRestartUnit" until the unit has been seen
   // reloading or activating and then active (needs a "Subscribe", as managerCall); for any other
   // method until the job has ended, as managerCallSO.
   // Throws as managerCallSO; when waiting, also SdbusSyncException for "ReloadOrTryRestartUnit",
   // which has no outcome to wait for (nothing is sent then), and for a unit that becomes "failed".
   Orl::String managerCallSsO(
      const Tessel::String& method, const Tessel::String& s1, const Tessel::String& s2,
      bool async );

   // Reads a boolean property of the manager.
   // Throws SdbusCallException, also for a property of another type; SdbusMessageException.
   bool managerPropertyB( const Tessel::String& property );
   // Reads a string property of the manager.
   // Throws SdbusCallException.
   Tessel::String managerPropertyS( const Tessel::String& property );
   // Reads a string property that all units have (interface org.freedesktop.systemd1.Unit) of the
   // unit with that name, for example "ActiveState".
   // Throws SdbusCallException, also for a unit that systemd has not loaded; SdbusMessageException.
   Tessel::String unitPropertyS( const Tessel::String& unit, const Tessel::String& property );

   // The same calls, returning with the method's reply. The result is the object path in it.
   // Throw SdbusCallException; those with a result also SdbusMessageException.
   void asyncManagerCall( const Tessel::String& method );
   Orl::String asyncManagerCallSO( const Tessel::String& method, const Tessel::String& s );
   Orl::String asyncManagerCallSsO(
      const Tessel::String& method, const Tessel::String& s1, const Tessel::String& s2 );

   // A connection on which systemd has answered within this call.
   // Borrowed from the entity, valid until the next operation on it, which may replace it.
   sd_bus* sdbus();

   // Check the outcome of an sd-bus call of the caller's own. `errMsg` opens the exception's text.
   // Each consumes the sd-bus object it is given, on every path. Thread: any that owns the object.
   //
   // Throws SdbusCallException when `ret` is negative. Consumes the contents of the sd_bus_error.
   void handleSdbusCall( int ret, Orl::VoidPtr sdErr, const Tessel::String& errMsg ) const;
   // Consumes the sd_bus_message unread.
   void handleSdbusMessage( Orl::VoidPtr sdMsg ) const;
   // Reads an object path. Consumes the sd_bus_message. Throws SdbusMessageException.
   Tessel::String handleSdbusMessageO( Orl::VoidPtr sdMsg, const Tessel::String& errMsg ) const;
   // Reads a boolean. Consumes the sd_bus_message. Throws SdbusMessageException.
   bool handleSdbusMessageB( Orl::VoidPtr sdMsg, const Tessel::String& errMsg ) const;

   // Run once at the end of construction: opens the connection and reads "SystemState".
   // Throws NoSdbusException, SdbusCallException; a connection that is open by then stays open.
   void handleInitialized();
   // Run at the start of destruction: closes the connection.
   void handleDeleted();

 protected:
   ~Sdbus() override;

 private:
   sd_bus* rawSdbus = nullptr;
};

// Creates an Sdbus with a connection of its own.
// Throws NoSdbusException when the bus can't be reached, SdbusCallException when systemd doesn't
// answer.
TESSEL_EXPORT Tessel::Ptr< Sdbus > sdbusFactory();

} // namespace Sodrel

extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::Sdbus >;
