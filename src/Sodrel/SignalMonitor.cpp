// The wait loop that all monitors share, and the three monitors with their signal callbacks.
#include <Sodrel/SignalMonitor.h>

#include <platform/trace/Trace.h>
#include <platform/value/Assert.h>

#include <charconv>
#include <cstring>
#include <string>
#include <utility>

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

// How a text goes on after its phrase: " for " and the object, if there is one.
Tessel::String forObject( const Orl::Optional< Tessel::String >& object ) {
   return object.hasValue() ? ( *object ).addLeft( " for " ) : Tessel::String();
}

// What sd-bus read; a null C string is an empty one.
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

// SignalMonitor

SignalMonitor::SignalMonitor( sd_bus* bus ) : rawSdbus( bus ) {}

SignalMonitor::~SignalMonitor() {
   nodeFlagSet( Tessel::nodeInitialized, false );
}

void SignalMonitor::slotIs( sd_bus_slot* newSlot ) {
   slot = newSlot;
}

void SignalMonitor::matchIs(
   const char* path, const char* interface, const char* member, sd_bus_message_handler_t callback,
   void* record, std::string_view failure, std::string_view subject ) {
   sd_bus_slot* newSlot = nullptr;
   const int matched =
      sd_bus_match_signal( rawSdbus, &newSlot, sender, path, interface, member, callback, record );
   if( matched < 0 ) {
      throw SdbusSyncException(
         Tessel::concat( failure, subject, ": ", std::strerror( -matched ) ) );
   }
   slot = newSlot;
}

void SignalMonitor::matchDel() {
   sd_bus_slot_unref( slot );
}

void SignalMonitor::waitUntil(
   const char* monitor, const Orl::Optional< Tessel::String >& object, const bool& callbackFailed,
   const std::function< bool() >& completed ) {
   const Tessel::Interval start = Tessel::Interval::steadyNow();
   while( true ) {
      if( callbackFailed ) {
         throw SdbusSyncException(
            Tessel::concat( monitor, "::wait, callback handling failed", forObject( object ) ) );
      }
      const int processed = sd_bus_process( rawSdbus, nullptr );
      if( processed < 0 ) {
         throw SdbusSyncException( Tessel::concat(
            monitor, "::wait, sd_bus_process failed: ", std::strerror( -processed ) ) );
      }
      if( processed > 0 ) {
         continue;
      }
      const Tessel::Interval elapsed = Tessel::Interval::steadyNow() - start;
      // Before the event, deliberately: an event that is noticed after the limit comes too late.
      if( elapsed >= syncTimeout ) {
         throw SdbusSyncException( Tessel::concat(
            monitor, "::wait, ", std::to_string( syncTimeout.seconds() ), " timeout",
            forObject( object ) ) );
      }
      if( completed() ) {
         return;
      }
      const Tessel::Interval remaining = syncTimeout - elapsed;
      const int waited = sd_bus_wait( rawSdbus, remaining.microsecondsAbove() );
      if( waited < 0 ) {
         throw SdbusSyncException(
            Tessel::concat( monitor, "::wait, sd_bus_wait failed: ", std::strerror( -waited ) ) );
      }
   }
}

// JobRemovedMonitor

int jobRemovedCallback( sd_bus_message* signal, void* userdata, sd_bus_error* error ) {
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
      // systemd's words are short enough to be stored without an allocation, so that nothing is
      // thrown through sd-bus here.
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
   matchIs(
      managerPath, managerInterface, "JobRemoved", &jobRemovedCallback, record.get(),
      "JobRemovedMonitor::handleInitialized, failed to register JobRemoved monitor" );
}

void JobRemovedMonitor::handleDeleted() {
   TRACE( 8, "Deinitialize JobRemovedMonitor" );
   matchDel();
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
   TRACE( 8, "Wait for JobRemoved signal of {}", *object );
   if( isUnitObject( *object ) ) {
      return true;
   }
   data->callbackFailed = false;
   data->jobId = parseJobId( *object );
   data->result = "";
   waitUntil( "JobRemovedMonitor", object, data->callbackFailed, [this, &object] {
      const Tessel::String& result = data->result;
      if( result.empty() || result == "done" || result == "skipped" ) {
         return !result.empty();
      }
      throw SdbusJobException(
         Tessel::concat( "JobRemovedMonitor::wait, job ", *object, " result: ", result ) );
   } );
   return true;
}

// DaemonReloadingMonitor

int reloadingCallback( sd_bus_message* signal, void* userdata, sd_bus_error* error ) {
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
   matchIs(
      managerPath, managerInterface, "Reloading", &reloadingCallback, record.get(),
      "DaemonReloadingMonitor::handleInitialized, failed to register Reloading monitor" );
}

void DaemonReloadingMonitor::handleDeleted() {
   TRACE( 8, "Deinitialize DaemonReloadingMonitor" );
   matchDel();
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
   waitUntil(
      "DaemonReloadingMonitor", object, data->callbackFailed, [this] { return data->finished; } );
   return data->started;
}

// UnitReloadingMonitor

void UnitReloadingMonitor::CallbackData::activeStateIs( std::string_view state ) {
   failed = state == "failed";
   if( started && state == "active" ) {
      finished = true;
   } else if( state == "reloading" || state == "activating" ) {
      started = true;
   }
}

int unitReloadingCallback( sd_bus_message* signal, void* userdata, sd_bus_error* error ) {
   auto& record = *static_cast< UnitReloadingMonitor::CallbackData* >( userdata );
   const auto failed = [&]( const char* text, int result ) {
      return callbackFailedIs( record.callbackFailed, error, text, result );
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
         record.activeStateIs( textOf( state ) );
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
   matchIs(
      unitPath.data(), propertiesInterface, "PropertiesChanged", &unitReloadingCallback,
      record.get(),
      "UnitReloadingMonitor::handleInitialized, "
      "failed to register PropertiesChanged monitor for ",
      unitPath );
}

void UnitReloadingMonitor::handleDeleted() {
   TRACE( 8, "Deinitialize UnitReloadingMonitor for {}", unitPath );
   matchDel();
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
   waitUntil( "UnitReloadingMonitor", std::nullopt, data->callbackFailed, [this] {
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
