// Signal monitors: each subscribes to one systemd signal and waits for what it reports.
//
// A monitor processes the connection itself, on the thread that calls wait; there is no event loop.
// Only one monitor of a connection may wait at a time: its wait also dispatches the signals of the
// others, which may then miss their event.
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

/// The type data of the monitors and their records.
extern TESSEL_EXPORT const Tessel::ModuleInspectData _SignalMonitor_178310f1_orlModule;

namespace Sodrel {

/// What all monitors share: the connection, the match rule and the wait loop.
///
/// Borrows the connection, which must stay open until the monitor is destroyed.
/// Thread: everything, including the callback, runs on the thread that calls wait; no other thread
/// may process the connection meanwhile.
class TESSEL_EXPORT SignalMonitor : public Tessel::Node {
   TESSEL_ENTITY( SignalMonitor )

 protected:
   /// Borrows the connection. The concrete monitor adds its match rule.
   explicit SignalMonitor( sd_bus* bus );
   ~SignalMonitor() override;

 public:
   /// Blocks until the awaited event has been seen, and returns its outcome.
   ///
   /// May be called again; each call discards what was seen before it. After a timeout, read the
   /// state instead: the wait may have seen the event too late.
   /// `object` is what the manager call returned; each monitor says whether it must be present.
   /// Throws SdbusSyncException if the signal cannot be read, if the bus fails, and after
   /// the time limit (the attribute syncTimeout; 600 s unless reflection changes it). The limit is
   /// checked before the event, so an event noticed after it is a timeout.
   virtual bool wait( const Orl::Optional< Tessel::String >& object ) = 0;

   /// Stores the slot of a match rule without releasing the previous one.
   ///
   /// Consumes the slot: the concrete monitor's destructor releases it.
   void slotIs( sd_bus_slot* newSlot );

 private:
   friend struct Monitoring;

   Tessel::Interval syncTimeout{ 600'000'000'000 };
   sd_bus* rawSdbus;
   sd_bus_slot* slot = nullptr;
};

/// Waits for the end of one job, reported by the manager's signal JobRemoved.
///
/// Create it before sending the call that queues the job: the match rule is added on construction,
/// so the signal cannot be missed. systemd sends the signal to the client that queued the job even
/// if no client has called "Subscribe".
class TESSEL_EXPORT JobRemovedMonitor : public SignalMonitor {
   TESSEL_ENTITY( JobRemovedMonitor )

 public:
   /// The record of the callback; nothing else writes it during a wait.
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

   /// Use jobRemovedMonitorFactory.
   explicit JobRemovedMonitor( sd_bus* bus );

   /// Waits until the job with the object path `object` has ended, and returns true.
   ///
   /// Returns true at once for the object path of a unit: there is no job to wait for.
   /// Throws SdbusJobException for any other path, and for a job result other than "done" and
   /// "skipped"; SdbusSyncException as the base does.
   /// Ends the process unless `object` is present.
   bool wait( const Orl::Optional< Tessel::String >& object ) override;

   /// Returns whether `object` is the object path of a unit.
   [[nodiscard]] bool isUnitObject( const Tessel::String& object ) const;
   /// Returns the id in a job's object path; characters after its digits are ignored.
   ///
   /// Throws SdbusJobException for a path without an id, or with one beyond 32 bits.
   std::uint32_t parseJobId( const Tessel::String& object ) const;

   /// Returns the callback's record, after creating it if there is none.
   Tessel::Ptr< CallbackData > dataIs();
   /// Releases ownership of the record to the caller.
   ///
   /// Afterwards, neither wait nor process the connection until the monitor is destroyed.
   Tessel::Ptr< CallbackData > dataDel();

   /// Runs at the end of construction: adds the match rule. Throws SdbusSyncException.
   void handleInitialized();
   /// Runs at the start of destruction: removes the match rule.
   void handleDeleted();

 protected:
   ~JobRemovedMonitor() override;

 private:
   Tessel::Ptr< CallbackData > data;
};

/// Waits for the end of a reload of the manager's configuration, reported by its signal Reloading.
///
/// Create it before sending the call, so that the signal cannot be missed. systemd sends the signal
/// only while some client has called "Subscribe".
class TESSEL_EXPORT DaemonReloadingMonitor : public SignalMonitor {
   TESSEL_ENTITY( DaemonReloadingMonitor )

 public:
   /// The record of the callback; nothing else writes it during a wait.
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

   /// Use daemonReloadingMonitorFactory.
   explicit DaemonReloadingMonitor( sd_bus* bus );

   /// Waits until a reload has ended, and returns whether its start has been seen too.
   ///
   /// Throws SdbusSyncException as the base does.
   /// Ends the process unless `object` is absent.
   bool wait( const Orl::Optional< Tessel::String >& object ) override;

   /// Returns the callback's record, after creating it if there is none.
   Tessel::Ptr< CallbackData > dataIs();
   /// Releases ownership of the record to the caller.
   ///
   /// Afterwards, neither wait nor process the connection until the monitor is destroyed.
   Tessel::Ptr< CallbackData > dataDel();

   /// Runs at the end of construction: adds the match rule. Throws SdbusSyncException.
   void handleInitialized();
   /// Runs at the start of destruction: removes the match rule.
   void handleDeleted();

 protected:
   ~DaemonReloadingMonitor() override;

 private:
   Tessel::Ptr< CallbackData > data;
};

/// Waits until one unit has been reloaded or restarted and is active again, reported by the
/// property ActiveState in the unit's PropertiesChanged signal.
///
/// Create it before sending the call, so that no state change is missed. systemd sends the signal
/// only while some client has called "Subscribe". A restart that goes from "inactive" to "active"
/// without "activating" in between, as that of a Type=simple service does, is not seen.
class TESSEL_EXPORT UnitReloadingMonitor : public SignalMonitor {
   TESSEL_ENTITY( UnitReloadingMonitor )

 public:
   /// The record of the callback; nothing else writes it during a wait.
   class TESSEL_EXPORT CallbackData : public Tessel::Node {
      TESSEL_ENTITY( CallbackData )
      friend class UnitReloadingMonitor;
      friend int unitReloadingCallback( sd_bus_message*, void*, sd_bus_error* ) noexcept;

    protected:
      ~CallbackData() override;

    private:
      bool callbackFailed = false;
      bool started = false;  // "reloading" or "activating" has been seen
      bool finished = false; // "active" has been seen after that
      bool failed = false;   // the latest state is "failed"
   };

   /// Does the same as unitReloadingMonitorFactory.
   static Tessel::Ptr< UnitReloadingMonitor >
   UnitReloadingMonitorIs( sd_bus* bus, const Tessel::String& unitPath );

   /// Use unitReloadingMonitorFactory.
   UnitReloadingMonitor( sd_bus* bus, const Tessel::String& path );

   /// Waits until the unit is active after a reload or activation, and returns true. Ignores
   /// `object`.
   ///
   /// Throws SdbusSyncException if the unit becomes "failed", and as the base does.
   bool wait( const Orl::Optional< Tessel::String >& object ) override;

   /// Returns the callback's record, after creating it if there is none.
   Tessel::Ptr< CallbackData > dataIs();
   /// Releases ownership of the record to the caller.
   ///
   /// Afterwards, neither wait nor process the connection until the monitor is destroyed.
   Tessel::Ptr< CallbackData > dataDel();

   /// Runs at the end of construction: adds the match rule. Throws SdbusSyncException.
   void handleInitialized();
   /// Runs at the start of destruction: removes the match rule.
   void handleDeleted();

 protected:
   ~UnitReloadingMonitor() override;

 private:
   Tessel::String unitPath;
   Tessel::Ptr< CallbackData > data;
};

/// Creates a monitor for jobs.
///
/// Borrows the connection, which must stay open until the monitor is destroyed.
/// Throws SdbusSyncException if the match rule cannot be added.
TESSEL_EXPORT Tessel::Ptr< JobRemovedMonitor > jobRemovedMonitorFactory( sd_bus* bus );
/// Creates a monitor for reloads of the manager; otherwise like jobRemovedMonitorFactory.
TESSEL_EXPORT Tessel::Ptr< DaemonReloadingMonitor > daemonReloadingMonitorFactory( sd_bus* bus );
/// Creates a monitor for the unit with the object path `unitPath`, as returned by the manager
/// method "GetUnit"; otherwise like jobRemovedMonitorFactory.
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
