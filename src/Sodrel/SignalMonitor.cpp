// The wait loop that all monitors share, and the three monitors with their signal callbacks.
#include <Sodrel/SignalMonitor.h>

#include <platform/trace/Trace.h>
#include <platform/value/Assert.h>

#include <charconv>
#include <concepts>
#include <cstring>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Sodrel {

namespace {

TRACE_FACILITY( "SignalMonitor" );

constexpr const char* sender = "org.freedesktop.systemd1";
constexpr const char* managerPath = "/org/freedesktop/systemd1";
constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr std::string_view jobPathStart = "/org/freedesktop/systemd1/job/";
constexpr std::string_view unitPathStart = "/org/freedesktop/systemd1/unit/";

// The end of a text, which names the awaited object if there is one.
Tessel::String forObject( const Orl::Optional< Tessel::String >& object ) {
   return object.hasValue() ? ( *object ).addLeft( " for " ) : Tessel::String();
}

// A string that sd-bus has read; null is the empty string.
std::string_view textOf( const char* text ) {
   return text ? text : "";
}

// Reports a signal that cannot be read to sd-bus and to the waiting monitor.
int callbackFailedIs( bool& callbackFailed, sd_bus_error* error, const char* text, int result ) {
   sd_bus_error_set( error, "org.freedesktop.DBus.Error.Failed", text );
   callbackFailed = true;
   return result;
}

} // namespace

// What all monitors do with the connection. Not exported.
struct Monitoring {
   // Adds the match rule and stores its slot. Borrows the record for as long as the rule exists.
   // Throws SdbusSyncException, whose text starts with `failure` and `subject`.
   static void matchIs(
      SignalMonitor& monitor, const char* path, const char* interface, const char* member,
      sd_bus_message_handler_t callback, void* record, const char* failure,
      const char* subject = "" );
   // Removes the match rule.
   static void matchDel( SignalMonitor& monitor );

   // Processes the connection until `completed` returns true; it is called whenever all received
   // messages have been dispatched. Throws what wait and `completed` throw. The texts of the
   // exceptions start with `prefix`; `object`, if present, is their subject.
   template< std::predicate Completed >
   static void waitUntil(
      SignalMonitor& monitor, std::string_view prefix,
      const Orl::Optional< Tessel::String >& object, const bool& callbackFailed,
      const Completed& completed );
};

void Monitoring::matchIs(
   SignalMonitor& monitor, const char* path, const char* interface, const char* member,
   sd_bus_message_handler_t callback, void* record, const char* failure, const char* subject ) {
   sd_bus_slot* slot = nullptr;
   const int matched = sd_bus_match_signal(
      monitor.rawSdbus, &slot, sender, path, interface, member, callback, record );
   if( matched < 0 ) {
      throw SdbusSyncException(
         Tessel::concat( failure, subject, ": ", std::strerror( -matched ) ) );
   }
   monitor.slot = slot;
}

void Monitoring::matchDel( SignalMonitor& monitor ) {
   sd_bus_slot_unref( monitor.slot );
}

template< std::predicate Completed >
void Monitoring::waitUntil(
   SignalMonitor& monitor, std::string_view prefix, const Orl::Optional< Tessel::String >& object,
   const bool& callbackFailed, const Completed& completed ) {
   const Tessel::Interval start = Tessel::Interval::steadyNow();
   while( true ) {
      if( callbackFailed ) {
         throw SdbusSyncException(
            Tessel::concat( prefix, "callback handling failed", forObject( object ) ) );
      }
      const int processed = sd_bus_process( monitor.rawSdbus, nullptr );
      if( processed < 0 ) {
         throw SdbusSyncException(
            Tessel::concat( prefix, "sd_bus_process failed: ", std::strerror( -processed ) ) );
      }
      if( processed > 0 ) {
         continue;
      }
      const Tessel::Interval elapsed = Tessel::Interval::steadyNow() - start;
      // Before the event, deliberately: an event noticed after the limit comes too late.
      if( elapsed >= monitor.syncTimeout ) {
         // {fmt} writes a decimal point in every locale.
         throw SdbusSyncException( Tessel::concat(
            prefix, fmt::format( "{:f}", monitor.syncTimeout.seconds() ), " timeout",
            forObject( object ) ) );
      }
      if( completed() ) {
         return;
      }
      const Tessel::Interval remaining = monitor.syncTimeout - elapsed;
      const int waited = sd_bus_wait( monitor.rawSdbus, remaining.microsecondsAbove() );
      if( waited < 0 ) {
         throw SdbusSyncException(
            Tessel::concat( prefix, "sd_bus_wait failed: ", std::strerror( -waited ) ) );
      }
   }
}

// SignalMonitor

SignalMonitor::SignalMonitor( sd_bus* bus ) : rawSdbus( bus ) {}

SignalMonitor::~SignalMonitor() {
   nodeFlagSet( Tessel::nodeInitialized, false );
}

void SignalMonitor::slotIs( sd_bus_slot* newSlot ) {
   slot = newSlot;
}

// JobRemovedMonitor

int jobRemovedCallback( sd_bus_message* signal, void* userdata, sd_bus_error* error ) noexcept {
   auto& record = *static_cast< JobRemovedMonitor::CallbackData* >( userdata );
   std::uint32_t jobId = 0;
   const char* job = "";
   const char* unit = "";
   const char* result = "";
   const int read = sd_bus_message_read( signal, "uoss", &jobId, &job, &unit, &result );
   if( read < 0 ) {
      return callbackFailedIs(
         record.callbackFailed, error, "Failed to parse JobRemoved signal.", read );
   }
   if( jobId == record.jobId ) {
      // The string stores the words that systemd sends without an allocation.
      record.result = result;
   }
   return 0;
}

Tessel::Ptr< JobRemovedMonitor > jobRemovedMonitorFactory( sd_bus* bus ) {
   return Tessel::ptrIsImpl< JobRemovedMonitor >( bus );
}

JobRemovedMonitor::JobRemovedMonitor( sd_bus* bus ) : SignalMonitor( bus ) {
   dataIs();
   handleInitialized();
}

JobRemovedMonitor::CallbackData::~CallbackData() {
   nodeFlagSet( Tessel::nodeInitialized, false );
}

JobRemovedMonitor::~JobRemovedMonitor() {
   nodeFlagSet( Tessel::nodeInitialized, false );
   handleDeleted();
}

void JobRemovedMonitor::handleInitialized() {
   TRACE( 8, "Initialize JobRemovedMonitor" );
   const Tessel::Ptr< CallbackData > record = data;
   Monitoring::matchIs(
      *this, managerPath, managerInterface, "JobRemoved", &jobRemovedCallback, record.get(),
      "JobRemovedMonitor::handleInitialized, failed to register JobRemoved monitor" );
}

void JobRemovedMonitor::handleDeleted() {
   TRACE( 8, "Deinitialize JobRemovedMonitor" );
   Monitoring::matchDel( *this );
}

Tessel::Ptr< JobRemovedMonitor::CallbackData > JobRemovedMonitor::dataIs() {
   if( !data ) {
      data = Tessel::ptrIsImpl< CallbackData >();
   }
   return data;
}

Tessel::Ptr< JobRemovedMonitor::CallbackData > JobRemovedMonitor::dataDel() {
   return std::move( data );
}

bool JobRemovedMonitor::isUnitObject( const Tessel::String& object ) const {
   return object.startsWith( unitPathStart );
}

std::uint32_t JobRemovedMonitor::parseJobId( const Tessel::String& object ) const {
   const std::string_view path = object;
   std::uint32_t jobId = 0;
   if( path.starts_with( jobPathStart ) ) {
      const char* const digits = path.data() + jobPathStart.size();
      if( std::from_chars( digits, path.data() + path.size(), jobId ).ec == std::errc() ) {
         return jobId;
      }
   }
   throw SdbusJobException(
      object.addLeft( "JobRemovedMonitor::parseJobId, failed to parse job: " ) );
}

bool JobRemovedMonitor::wait( const Orl::Optional< Tessel::String >& object ) {
   TESSEL_ASSERT(
      object.hasValue(),
      "virtual bool Sodrel::JobRemovedMonitor::wait(const Orl::Optional<Tessel::String>&)" );
   const Tessel::String& path = *object;
   TRACE( 8, "Wait for JobRemoved signal of {}", path );
   if( isUnitObject( path ) ) {
      return true;
   }
   data->callbackFailed = false;
   data->jobId = parseJobId( path );
   data->result.clear();
   Monitoring::waitUntil(
      *this, "JobRemovedMonitor::wait, ", object, data->callbackFailed, [this, &path] {
         const Tessel::String& result = data->result;
         if( result.empty() || result == "done" || result == "skipped" ) {
            return !result.empty();
         }
         throw SdbusJobException(
            Tessel::concat( "JobRemovedMonitor::wait, job ", path, " result: ", result ) );
      } );
   return true;
}

// DaemonReloadingMonitor

int reloadingCallback( sd_bus_message* signal, void* userdata, sd_bus_error* error ) noexcept {
   auto& record = *static_cast< DaemonReloadingMonitor::CallbackData* >( userdata );
   int reloading = 0;
   const int read = sd_bus_message_read( signal, "b", &reloading );
   if( read < 0 ) {
      return callbackFailedIs(
         record.callbackFailed, error, "Failed to parse Reloading signal.", read );
   }
   if( !reloading ) {
      record.finished = true;
   } else if( !record.started ) {
      record.started = true;
      record.finished = false;
   }
   return 0;
}

Tessel::Ptr< DaemonReloadingMonitor > daemonReloadingMonitorFactory( sd_bus* bus ) {
   return Tessel::ptrIsImpl< DaemonReloadingMonitor >( bus );
}

DaemonReloadingMonitor::DaemonReloadingMonitor( sd_bus* bus ) : SignalMonitor( bus ) {
   dataIs();
   handleInitialized();
}

DaemonReloadingMonitor::CallbackData::~CallbackData() {
   nodeFlagSet( Tessel::nodeInitialized, false );
}

DaemonReloadingMonitor::~DaemonReloadingMonitor() {
   nodeFlagSet( Tessel::nodeInitialized, false );
   handleDeleted();
}

void DaemonReloadingMonitor::handleInitialized() {
   TRACE( 8, "Initialize DaemonReloadingMonitor" );
   const Tessel::Ptr< CallbackData > record = data;
   Monitoring::matchIs(
      *this, managerPath, managerInterface, "Reloading", &reloadingCallback, record.get(),
      "DaemonReloadingMonitor::handleInitialized, failed to register Reloading monitor" );
}

void DaemonReloadingMonitor::handleDeleted() {
   TRACE( 8, "Deinitialize DaemonReloadingMonitor" );
   Monitoring::matchDel( *this );
}

Tessel::Ptr< DaemonReloadingMonitor::CallbackData > DaemonReloadingMonitor::dataIs() {
   if( !data ) {
      data = Tessel::ptrIsImpl< CallbackData >();
   }
   return data;
}

Tessel::Ptr< DaemonReloadingMonitor::CallbackData > DaemonReloadingMonitor::dataDel() {
   return std::move( data );
}

bool DaemonReloadingMonitor::wait( const Orl::Optional< Tessel::String >& object ) {
   TRACE( 8, "Wait for Reloading signal" );
   TESSEL_ASSERT(
      !object.hasValue(),
      "virtual bool Sodrel::DaemonReloadingMonitor::wait(const Orl::Optional<Tessel::String>&)" );
   data->callbackFailed = false;
   data->started = false;
   data->finished = false;
   Monitoring::waitUntil(
      *this, "DaemonReloadingMonitor::wait, ", object, data->callbackFailed,
      [this] { return data->finished; } );
   return data->started;
}

// UnitReloadingMonitor

int unitReloadingCallback( sd_bus_message* signal, void* userdata, sd_bus_error* error ) noexcept {
   auto& record = *static_cast< UnitReloadingMonitor::CallbackData* >( userdata );
   const auto failed = [&]( const char* text, int result ) {
      return callbackFailedIs( record.callbackFailed, error, text, result );
   };
   const auto stateIs = [&]( std::string_view state ) {
      record.failed = state == "failed";
      if( record.started && state == "active" ) {
         record.finished = true;
      } else if( state == "reloading" || state == "activating" ) {
         record.started = true;
      }
   };
   const char* interface = "";
   if( const int read = sd_bus_message_read( signal, "s", &interface ); read < 0 ) {
      return failed( "Failed to parse PropertiesChanged signal.", read );
   }
   if( textOf( interface ) != unitInterface ) {
      return 0;
   }
   if( const int entered = sd_bus_message_enter_container( signal, 'a', "{sv}" ); entered < 0 ) {
      return failed( "Failed to enter an array of changed properties.", entered );
   }
   while( true ) {
      const int entered = sd_bus_message_enter_container( signal, 'e', "sv" );
      if( entered < 0 ) {
         return failed( "Failed to parse an entity with changed properties.", entered );
      }
      if( entered == 0 ) {
         sd_bus_message_exit_container( signal );
         return 0;
      }
      const char* property = "";
      if( const int read = sd_bus_message_read( signal, "s", &property ); read < 0 ) {
         return failed( "Failed to parse name of changed property.", read );
      }
      if( textOf( property ) != "ActiveState" ) {
         sd_bus_message_skip( signal, "v" );
      } else {
         const char* state = "";
         if( const int read = sd_bus_message_read( signal, "v", "s", &state ); read < 0 ) {
            return failed( "Failed to parse value of ActiveState property.", read );
         }
         stateIs( textOf( state ) );
      }
      sd_bus_message_exit_container( signal );
   }
}

Tessel::Ptr< UnitReloadingMonitor >
unitReloadingMonitorFactory( sd_bus* bus, const Tessel::String& unitPath ) {
   return Tessel::ptrIsImpl< UnitReloadingMonitor >( bus, unitPath );
}

Tessel::Ptr< UnitReloadingMonitor >
UnitReloadingMonitor::UnitReloadingMonitorIs( sd_bus* bus, const Tessel::String& unitPath ) {
   return unitReloadingMonitorFactory( bus, unitPath );
}

UnitReloadingMonitor::UnitReloadingMonitor( sd_bus* bus, const Tessel::String& path )
   : SignalMonitor( bus ), unitPath( path ) {
   dataIs();
   handleInitialized();
}

UnitReloadingMonitor::CallbackData::~CallbackData() {
   nodeFlagSet( Tessel::nodeInitialized, false );
}

UnitReloadingMonitor::~UnitReloadingMonitor() {
   nodeFlagSet( Tessel::nodeInitialized, false );
   handleDeleted();
}

void UnitReloadingMonitor::handleInitialized() {
   TRACE( 8, "Initialize UnitReloadingMonitor for {}", unitPath );
   const Tessel::Ptr< CallbackData > record = data;
   Monitoring::matchIs(
      *this, unitPath.data(), propertiesInterface, "PropertiesChanged", &unitReloadingCallback,
      record.get(),
      "UnitReloadingMonitor::handleInitialized, "
      "failed to register PropertiesChanged monitor for ",
      unitPath.data() );
}

void UnitReloadingMonitor::handleDeleted() {
   TRACE( 8, "Deinitialize UnitReloadingMonitor for {}", unitPath );
   Monitoring::matchDel( *this );
}

Tessel::Ptr< UnitReloadingMonitor::CallbackData > UnitReloadingMonitor::dataIs() {
   if( !data ) {
      data = Tessel::ptrIsImpl< CallbackData >();
   }
   return data;
}

Tessel::Ptr< UnitReloadingMonitor::CallbackData > UnitReloadingMonitor::dataDel() {
   return std::move( data );
}

bool UnitReloadingMonitor::wait( const Orl::Optional< Tessel::String >& ) {
   TRACE( 8, "Wait for PropertiesChanged signal" );
   data->callbackFailed = false;
   data->started = false;
   data->finished = false;
   data->failed = false;
   Monitoring::waitUntil(
      *this, "UnitReloadingMonitor::wait, ", std::nullopt, data->callbackFailed, [this] {
         if( data->failed && !data->finished ) {
            // The failure carries no error number, so the text ends in the words for number 0.
            throw SdbusSyncException( Tessel::concat(
               "UnitReloadingMonitor::wait, unit ", unitPath, " failed: ", std::strerror( 0 ) ) );
         }
         return data->finished;
      } );
   return true;
}

} // namespace Sodrel
