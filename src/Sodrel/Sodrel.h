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

/// The type data of Sdbus.
extern TESSEL_EXPORT const Tessel::ModuleInspectData _Sodrel_c4788d5e_orlModule;

namespace Sodrel {

/// A connection to the system bus, and the operations of the systemd manager.
///
/// Names and D-Bus types of methods, properties and signals: org.freedesktop.systemd1(5).
///
/// Every operation first reads "SystemState" from systemd (the probe). If that fails for any
/// reason, it closes the connection and opens a new one. What belonged to the old connection is
/// lost: monitors created on it, the subscription made by the manager method "Subscribe", and
/// limits set on the sd_bus object. Method calls and property reads time out after sd-bus's default
/// of 25 s.
///
/// Owns its connection. Throws: every operation may throw NoSdbusException and std::bad_alloc. The
/// entity remains usable after any exception.
/// Thread: one at a time; callers that share an entity must serialise their calls.
class TESSEL_EXPORT Sdbus : public Tessel::Node {
   TESSEL_ENTITY( Sdbus )

 public:
   /// Use sdbusFactory.
   Sdbus();

   /// Calls a manager method without arguments. Unless `async` is true, waits until its effect is
   /// reported. Only "Reload" can be waited for: until the manager has reloaded.
   ///
   /// systemd reports a reload only while some client of the bus has called "Subscribe". If there
   /// may be none, call managerCall( "Subscribe", true ) first, and again after a reconnection.
   /// Throws SdbusCallException. When waiting, throws SdbusSyncException for any other method (it
   /// is not sent), if the bus fails during the wait, and after 600 s without a report.
   /// Ends the process if the start of two reloads in a row was not seen.
   void managerCall( const Tessel::String& method, bool async );
   /// Calls a manager method that takes one string and queues a job, and returns the job's object
   /// path. Unless `async` is true, waits until the job has ended, which needs no "Subscribe".
   ///
   /// Throws SdbusCallException and SdbusMessageException. When waiting, throws SdbusJobException
   /// for a job result other than "done" and "skipped", and SdbusSyncException if the bus fails
   /// during the wait and after 600 s without the job's end.
   Orl::String managerCallSO( const Tessel::String& method, const Tessel::String& s, bool async );
   /// Calls a manager method that takes two strings, usually a unit name and a job mode ("replace",
   /// "fail", ...), and returns the job's object path.
   ///
   /// Unless `async` is true, waits: for "ReloadUnit" and "ReloadOrRestartUnit" until the unit has
   /// been seen reloading or activating and then active (needs a "Subscribe", as managerCall does);
   /// for any other method until the job has ended, as managerCallSO does. Throws as managerCallSO.
   /// When waiting, also throws SdbusSyncException for "ReloadOrTryRestartUnit", whose outcome
   /// cannot be waited for (it is not sent), and for a unit that becomes "failed".
   Orl::String managerCallSsO(
      const Tessel::String& method, const Tessel::String& s1, const Tessel::String& s2,
      bool async );

   /// Reads a boolean property of the manager.
   ///
   /// Throws SdbusCallException, also for a property of another type, and SdbusMessageException.
   bool managerPropertyB( const Tessel::String& property );
   /// Reads a string property of the manager.
   ///
   /// Throws SdbusCallException.
   Tessel::String managerPropertyS( const Tessel::String& property );
   /// Reads a string property of the named unit. The property is one that all units have, such as
   /// "ActiveState" (interface org.freedesktop.systemd1.Unit).
   ///
   /// Throws SdbusCallException, also for a unit that is not loaded, as most stopped units are not;
   /// and SdbusMessageException.
   Tessel::String unitPropertyS( const Tessel::String& unit, const Tessel::String& property );

   /// Calls a manager method without arguments and returns once it has replied.
   ///
   /// Throws SdbusCallException.
   void asyncManagerCall( const Tessel::String& method );
   /// Calls a manager method that takes one string, and returns the object path in its reply.
   ///
   /// Throws SdbusCallException and SdbusMessageException.
   Orl::String asyncManagerCallSO( const Tessel::String& method, const Tessel::String& s );
   /// Calls a manager method that takes two strings, and returns the object path in its reply.
   ///
   /// Throws SdbusCallException and SdbusMessageException.
   Orl::String asyncManagerCallSsO(
      const Tessel::String& method, const Tessel::String& s1, const Tessel::String& s2 );

   /// Returns a connection on which systemd has replied during this call.
   ///
   /// Borrowed from the entity; valid until the next operation on it, which may replace it.
   sd_bus* sdbus();

   /// Checks the result `ret` of an sd-bus call of your own. The text of the exception starts with
   /// `errMsg` and ends with the message of the sd_bus_error, if there is one.
   ///
   /// Consumes the contents of the sd_bus_error on every path; null means an error without a
   /// message. Throws SdbusCallException if `ret` is negative. Thread: any.
   void handleSdbusCall( int ret, Orl::VoidPtr sdErr, const Tessel::String& errMsg ) const;
   /// Releases a reply unread.
   ///
   /// Consumes the sd_bus_message. Thread: any.
   void handleSdbusMessage( Orl::VoidPtr sdMsg ) const;
   /// Reads an object path from a reply.
   ///
   /// Consumes the sd_bus_message on every path. Throws SdbusMessageException, whose text starts
   /// with `errMsg`. Thread: any.
   Tessel::String handleSdbusMessageO( Orl::VoidPtr sdMsg, const Tessel::String& errMsg ) const;
   /// Reads a boolean from a reply; otherwise like handleSdbusMessageO.
   bool handleSdbusMessageB( Orl::VoidPtr sdMsg, const Tessel::String& errMsg ) const;

   /// Runs at the end of construction: opens the connection and reads "SystemState".
   ///
   /// Throws NoSdbusException and SdbusCallException. A connection that has already been opened
   /// stays open.
   void handleInitialized();
   /// Runs at the start of destruction: closes the connection.
   void handleDeleted();

 protected:
   ~Sdbus() override;

 private:
   sd_bus* rawSdbus = nullptr;
};

/// Creates an Sdbus with its own connection.
///
/// Throws NoSdbusException if the bus cannot be reached, and SdbusCallException if systemd does not
/// reply; a connection that has already been opened then stays open until the process ends.
TESSEL_EXPORT Tessel::Ptr< Sdbus > sdbusFactory();

} // namespace Sodrel

extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::Sdbus >;
