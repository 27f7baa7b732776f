// Signal monitors: each subscribes to one systemd signal, and waits for what it reports.
//
// A monitor pumps the connection itself, on the thread that calls wait; there is no event loop.
// Signals and properties: org.freedesktop.systemd1(5).
#pragma once

#include <Sodrel/Exceptions.h>

#include <platform/entity/Entity.h>
#include <platform/types/TypeData.h>
#include <platform/value/Interval.h>
#include <platform/value/Optional.h>
#include <platform/value/String.h>

#include <cstdint>
#include <systemd/sd-bus.h>

// The type data of the monitors and their records.
extern TESSEL_EXPORT const Tessel::ModuleInspectData _SignalMonitor_178310f1_orlModule;

namespace Sodrel {

// What all monitors share: the connection, the signal match and the wait loop.
//
// Borrows the connection, which must stay open until the monitor is gone.
// Thread: everything, the signal callback included, runs on the thread that calls wait; nobody
// else may process the connection meanwhile.
class TESSEL_EXPORT SignalMonitor : public Tessel::Node {
   TESSEL_ENTITY( SignalMonitor )

 protected:
   // Borrows the connection. The concrete monitor registers its match.
   explicit SignalMonitor( sd_bus* bus );
   ~SignalMonitor() override;

 public:
   // Blocks until the awaited event has been seen, and returns its outcome. May be called again.
   //
   // `object` is what the manager call returned; each monitor says whether it must be there.
   // Throws SdbusSyncException when the signal could not be read, when the bus failed, and when
   // the attribute syncTimeout, 600 s unless reflection changes it, has run out. The limit is
   // looked at before the event, so an event that is noticed too late is a time-out.
   virtual bool wait( const Orl::Optional< Tessel::String >& object ) = 0;

   // Stores the slot of a signal match, without releasing the one before.
   // Consumes the slot: the concrete monitor releases the one it holds when it goes.
   void slotIs( sd_bus_slot* newSlot );

 private:
   friend struct Monitoring;

   Tessel::Interval syncTimeout{ 600'000'000'000 };
   sd_bus* rawSdbus;
   sd_bus_slot* slot = nullptr;
};

// Waits for the end of one job, by the manager's signal JobRemoved.
//
// Create it before sending the call that queues the job: the match exists from construction on,
// so that the signal cannot be missed. The signal reaches the client that queued the job even
// when nobody has called "Subscribe".
class TESSEL_EXPORT JobRemovedMonitor : public SignalMonitor {
   TESSEL_ENTITY( JobRemovedMonitor )

 public:
   // What the signal callback writes, and nothing else does during a wait.
   class TESSEL_EXPORT CallbackData : public Tessel::Node {
      TESSEL_ENTITY( CallbackData )
      friend class JobRemovedMonitor;
      friend int jobRemovedCallback( sd_bus_message*, void*, sd_bus_error* ) noexcept;

    protected:
      ~CallbackData() override;

    private:
      bool callbackFailed = false;
      std::uint32_t jobId = 0; // of the awaited job
      Tessel::String result;   // empty until its signal has come
   };

   // Use jobRemovedMonitorFactory.
   explicit JobRemovedMonitor( sd_bus* bus );

   // Waits until the job with the object path `object` has ended. Returns true.
   //
   // The object path of a unit returns true at once: there is no job to wait for.
   // Throws SdbusJobException for a path of neither kind, and for a result other than "done" and
   // "skipped"; SdbusSyncException as the base.
   // Ends the process unless `object` is present.
   bool wait( const Orl::Optional< Tessel::String >& object ) override;

   // Whether `object` is the path of a unit.
   [[nodiscard]] bool isUnitObject( const Tessel::String& object ) const;
   // The number in a job's object path; what follows the digits is ignored.
   // Throws SdbusJobException for a path without one, or beyond 32 bits.
   std::uint32_t parseJobId( const Tessel::String& object ) const;

   // The callback's record, made if there is none.
   Tessel::Ptr< CallbackData > dataIs();
   // Hands the record and its use to the caller. There may be no wait afterwards.
   Tessel::Ptr< CallbackData > dataDel();

   // Run at the end of construction: registers the match. Throws SdbusSyncException.
   void handleInitialized();
   // Run at the start of destruction: removes the match.
   void handleDeleted();

 protected:
   ~JobRemovedMonitor() override;

 private:
   Tessel::Ptr< CallbackData > data;
};

// Waits for the end of a reload of the manager's configuration, by its signal Reloading.
//
// Create it before sending the call, so that the signal cannot be missed. systemd sends the signal
// only while some client has called "Subscribe".
class TESSEL_EXPORT DaemonReloadingMonitor : public SignalMonitor {
   TESSEL_ENTITY( DaemonReloadingMonitor )

 public:
   // What the signal callback writes, and nothing else does during a wait.
   class TESSEL_EXPORT CallbackData : public Tessel::Node {
      TESSEL_ENTITY( CallbackData )
      friend class DaemonReloadingMonitor;
      friend int reloadingCallback( sd_bus_message*, void*, sd_bus_error* ) noexcept;

    protected:
      ~CallbackData() override;

    private:
      bool callbackFailed = false;
      bool started = false;
      bool finished = false;
   };

   // Use daemonReloadingMonitorFactory.
   explicit DaemonReloadingMonitor( sd_bus* bus );

   // Waits until a reload has ended. Returns whether its start has been seen too.
   //
   // Throws SdbusSyncException as the base.
   // Ends the process unless `object` is absent.
   bool wait( const Orl::Optional< Tessel::String >& object ) override;

   // The callback's record, made if there is none.
   Tessel::Ptr< CallbackData > dataIs();
   // Hands the record and its use to the caller. There may be no wait afterwards.
   Tessel::Ptr< CallbackData > dataDel();

   // Run at the end of construction: registers the match. Throws SdbusSyncException.
   void handleInitialized();
   // Run at the start of destruction: removes the match.
   void handleDeleted();

 protected:
   ~DaemonReloadingMonitor() override;

 private:
   Tessel::Ptr< CallbackData > data;
};

// Waits until one unit has gone through a reload or restart and is active again, by the property
// ActiveState in the unit's PropertiesChanged signal.
//
// Create it before sending the call, so that no change of state can be missed. systemd sends the
// signal only while some client has called "Subscribe". A restart of a unit that goes from
// "inactive" to "active" without "activating" in between, as one of Type=simple does, is not seen.
class TESSEL_EXPORT UnitReloadingMonitor : public SignalMonitor {
   TESSEL_ENTITY( UnitReloadingMonitor )

 public:
   // What the signal callback writes, and nothing else does during a wait.
   class TESSEL_EXPORT CallbackData : public Tessel::Node {
      TESSEL_ENTITY( CallbackData )
      friend class UnitReloadingMonitor;
      friend int unitReloadingCallback( sd_bus_message*, void*, sd_bus_error* ) noexcept;

    protected:
      ~CallbackData() override;

    private:
      bool callbackFailed = false;
      bool started = false;  // "reloading" or "activating" has been seen
      bool finished = false; // and "active" after it
      bool failed = false;   // the latest state is "failed"
   };

   // As unitReloadingMonitorFactory.
   static Tessel::Ptr< UnitReloadingMonitor >
   UnitReloadingMonitorIs( sd_bus* bus, const Tessel::String& unitPath );

   // Use unitReloadingMonitorFactory.
   UnitReloadingMonitor( sd_bus* bus, const Tessel::String& path );

   // Waits until the unit is active after a reload or activation. Returns true; ignores `object`.
   //
   // Throws SdbusSyncException when the unit becomes "failed", and as the base.
   bool wait( const Orl::Optional< Tessel::String >& object ) override;

   // The callback's record, made if there is none.
   Tessel::Ptr< CallbackData > dataIs();
   // Hands the record and its use to the caller. There may be no wait afterwards.
   Tessel::Ptr< CallbackData > dataDel();

   // Run at the end of construction: registers the match. Throws SdbusSyncException.
   void handleInitialized();
   // Run at the start of destruction: removes the match.
   void handleDeleted();

 protected:
   ~UnitReloadingMonitor() override;

 private:
   Tessel::String unitPath;
   Tessel::Ptr< CallbackData > data;
};

// Create a monitor on a connection that the caller keeps open until the monitor is gone.
// Throw SdbusSyncException when the match can't be registered.
TESSEL_EXPORT Tessel::Ptr< JobRemovedMonitor > jobRemovedMonitorFactory( sd_bus* bus );
TESSEL_EXPORT Tessel::Ptr< DaemonReloadingMonitor > daemonReloadingMonitorFactory( sd_bus* bus );
// `unitPath` is the unit's object path, as the manager method "GetUnit" returns it.
TESSEL_EXPORT Tessel::Ptr< UnitReloadingMonitor >
unitReloadingMonitorFactory( sd_bus* bus, const Tessel::String& unitPath );

} // namespace Sodrel

extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::SignalMonitor >;
extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::JobRemovedMonitor::CallbackData >;
extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::JobRemovedMonitor >;
extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::DaemonReloadingMonitor::CallbackData >;
extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::DaemonReloadingMonitor >;
extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::UnitReloadingMonitor::CallbackData >;
extern template struct TESSEL_EXPORT Tessel::HideMe< Sodrel::UnitReloadingMonitor >;
