// Sdbus: connection, replies, property reads and calls.
#include <Sodrel/Sodrel.h>

#include <Sodrel/SignalMonitor.h>
#include <platform/trace/Trace.h>
#include <platform/value/Assert.h>

#include <concepts>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <systemd/sd-bus.h>
#include <utility>

namespace Sodrel {

namespace {

TRACE_FACILITY( "Sodrel" );

constexpr const char* destination = "org.freedesktop.systemd1";
constexpr const char* managerPath = "/org/freedesktop/systemd1";
constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";

template< auto release >
struct Release {
   template< typename T >
   void operator()( T* object ) const {
      release( object );
   }
};

using CString = std::unique_ptr< char, Release< &std::free > >;
using Reply = std::unique_ptr< sd_bus_message, Release< &sd_bus_message_unref > >;

// Owns the contents of an sd_bus_error, but not the sd_bus_error itself.
using ErrorContents = std::unique_ptr< sd_bus_error, Release< &sd_bus_error_free > >;

// Appends the system's words for the negative result of an sd-bus function.
Tessel::String withCause( const Tessel::String& what, int result ) {
   return Tessel::concat( what, ": ", std::strerror( -result ) );
}

// `failure` composes the text of a failure, and is only called if there is one: an operation that
// has succeeded cannot fail for lack of memory.

// Throws unless the call succeeded. Consumes the contents of the error.
template< std::invocable Failure >
void check( const Sdbus& client, int ret, sd_bus_error& error, const Failure& failure ) {
   ErrorContents contents( &error );
   if( ret < 0 ) {
      const Tessel::String text = failure();
      client.handleSdbusCall( ret, contents.release(), text ); // GCOVR_EXCL_BR_LINE: throws
   }
}

// Reads an object path. Consumes the reply.
template< std::invocable Failure >
Tessel::String readPath( Reply&& reply, const Failure& failure ) {
   const char* path = "";
   const int read = sd_bus_message_read( reply.get(), "o", &path );
   if( read < 0 ) {
      sd_bus_message_unref( reply.release() );
      throw SdbusMessageException( withCause( failure(), read ) );
   }
   // The path points into the reply, so it is copied before the reply is dropped.
   Tessel::String copy = path;
   sd_bus_message_unref( reply.release() );
   return copy;
}

// Reads a boolean. Consumes the reply.
template< std::invocable Failure >
bool readBool( Reply&& reply, const Failure& failure ) {
   int value = 0;
   const int read = sd_bus_message_read( reply.get(), "b", &value );
   sd_bus_message_unref( reply.release() );
   if( read < 0 ) {
      throw SdbusMessageException( withCause( failure(), read ) );
   }
   return value != 0;
}

// Reads a string property of one object, and checks the outcome.
template< std::invocable Failure >
Tessel::String readString(
   const Sdbus& client, sd_bus* bus, const char* path, const char* interface,
   const Tessel::String& property, const Failure& failure ) {
   sd_bus_error error = {};
   char* value = nullptr;
   const int ret = sd_bus_get_property_string(
      bus, destination, path, interface, property.data(), &error, &value );
   const CString owned( value );
   check( client, ret, error, failure );
   return owned.get();
}

// Calls a manager method, checks the outcome, and returns the reply.
template< std::invocable Failure, typename... CStrings >
Reply callMethod(
   const Sdbus& client, sd_bus* bus, const Tessel::String& method, const Failure& failure,
   const char* signature, CStrings... arguments ) {
   sd_bus_error error = {};
   sd_bus_message* message = nullptr;
   const int ret = sd_bus_call_method(
      bus, destination, managerPath, managerInterface, method.data(), &error, &message, signature,
      arguments... );
   Reply reply( message );
   check( client, ret, error, failure );
   return reply;
}

} // namespace

Tessel::Ptr< Sdbus > sdbusFactory() {
   return Tessel::ptrIsImpl< Sdbus >();
}

Sdbus::Sdbus() {
   handleInitialized();
}

Sdbus::~Sdbus() {
   nodeFlagSet( Tessel::nodeInitialized, false );
   handleDeleted();
}

// Connection

void Sdbus::handleInitialized() {
   TRACE( 8, "Initialize sd-bus" );
   const Tessel::String state = managerPropertyS( "SystemState" );
   TRACE( 9, "SystemState {}", state );
}

void Sdbus::handleDeleted() {
   TRACE( 8, "Deinitialize sd-bus" );
   sd_bus_flush_close_unref( rawSdbus );
   rawSdbus = nullptr;
}

sd_bus* Sdbus::sdbus() {
   char* value = nullptr;
   const int probed = sd_bus_get_property_string(
      rawSdbus, destination, managerPath, managerInterface, "SystemState", nullptr, &value );
   if( probed >= 0 ) {
      std::free( value );
      return rawSdbus;
   }
   if( rawSdbus ) {
      TRACE( 5, "Reconnect sd-bus, older connection expired: {}", -probed );
      sd_bus_flush_close_unref( std::exchange( rawSdbus, nullptr ) );
   }
   sd_bus* bus = nullptr;
   const int opened = sd_bus_open_system( &bus );
   if( opened < 0 ) {
      throw NoSdbusException( withCause( "Sdbus::sdbus, failed to initialize sd-bus", opened ) );
   }
   rawSdbus = bus;
   return rawSdbus;
}

// Replies

void Sdbus::handleSdbusCall( int ret, Orl::VoidPtr sdErr, const Tessel::String& errMsg ) const {
   ErrorContents error( static_cast< sd_bus_error* >( sdErr ) );
   if( ret >= 0 ) {
      return;
   }
   Tessel::String text =
      error && error->message ? Tessel::concat( errMsg, ": ", error->message ) : errMsg;
   error.reset();
   throw SdbusCallException( std::move( text ) );
}

void Sdbus::handleSdbusMessage( Orl::VoidPtr sdMsg ) const {
   sd_bus_message_unref( static_cast< sd_bus_message* >( sdMsg ) );
}

Tessel::String
Sdbus::handleSdbusMessageO( Orl::VoidPtr sdMsg, const Tessel::String& errMsg ) const {
   return readPath( Reply( static_cast< sd_bus_message* >( sdMsg ) ), [&] { return errMsg; } );
}

bool Sdbus::handleSdbusMessageB( Orl::VoidPtr sdMsg, const Tessel::String& errMsg ) const {
   return readBool( Reply( static_cast< sd_bus_message* >( sdMsg ) ), [&] { return errMsg; } );
}

// Property reads

bool Sdbus::managerPropertyB( const Tessel::String& property ) {
   TRACE( 8, "Get {} manager property with sd-bus", property );
   sd_bus* const bus = sdbus();
   sd_bus_error error = {};
   sd_bus_message* message = nullptr;
   const int ret = sd_bus_get_property(
      bus, destination, managerPath, managerInterface, property.data(), &error, &message, "b" );
   Reply reply( message );
   check( *this, ret, error, [&] {
      return Tessel::concat(
         "Sdbus::managerPropertyB, manager property ", property, " read failed" );
   } );
   return readBool( std::move( reply ), [&] {
      return Tessel::concat(
         "Sdbus::managerPropertyB, message handling failed for property ", property );
   } );
}

Tessel::String Sdbus::managerPropertyS( const Tessel::String& property ) {
   TRACE( 8, "Get {} manager property with sd-bus", property );
   return readString( *this, sdbus(), managerPath, managerInterface, property, [&] {
      return Tessel::concat(
         "Sdbus::managerPropertyS, manager property ", property, " read failed" );
   } );
}

Tessel::String Sdbus::unitPropertyS( const Tessel::String& unit, const Tessel::String& property ) {
   TRACE( 8, "Get {} property of {} with sd-bus", property, unit );
   const Tessel::String path = asyncManagerCallSO( "GetUnit", unit );
   return readString( *this, sdbus(), path.data(), unitInterface, property, [&] {
      return Tessel::concat(
         "Sdbus::unitPropertyS, read failed for property ", property, " of ", unit );
   } );
}

// Manager calls

void Sdbus::managerCall( const Tessel::String& method, bool async ) {
   TRACE( 8, "Call sd-bus systemd manager {}, async={}", method, async );
   if( async ) {
      asyncManagerCall( method );
      return;
   }
   sd_bus* const bus = sdbus();
   if( method != "Reload" ) {
      throw SdbusSyncException( Tessel::concat(
         "Sdbus::managerCall, method ", method, " doesn't support sync operations" ) );
   }
   const Tessel::Ptr< SignalMonitor > signalMonitor = daemonReloadingMonitorFactory( bus );
   asyncManagerCall( method );
   if( !signalMonitor->wait( std::nullopt ) ) {
      asyncManagerCall( method );
      TESSEL_ASSERT(
         signalMonitor->wait( std::nullopt ),
         "void Sodrel::Sdbus::managerCall(const String&, bool)" );
   }
}

Orl::String
Sdbus::managerCallSO( const Tessel::String& method, const Tessel::String& s, bool async ) {
   TRACE( 8, "Call sd-bus systemd manager {} {}, async={}", method, s, async );
   if( async ) {
      return asyncManagerCallSO( method, s );
   }
   const Tessel::Ptr< SignalMonitor > signalMonitor = jobRemovedMonitorFactory( sdbus() );
   Orl::Optional< Tessel::String > object( asyncManagerCallSO( method, s ) );
   if( !signalMonitor->wait( object ) ) {
      object = asyncManagerCallSO( method, s );
      TESSEL_ASSERT(
         signalMonitor->wait( object ),
         "Orl::String Sodrel::Sdbus::managerCallSO(const String&, const String&, bool)" );
   }
   return *std::move( object );
}

Orl::String Sdbus::managerCallSsO(
   const Tessel::String& method, const Tessel::String& s1, const Tessel::String& s2, bool async ) {
   TRACE( 8, "Call sd-bus systemd manager {} {} {}, async={}", method, s1, s2, async );
   if( async ) {
      return asyncManagerCallSsO( method, s1, s2 );
   }
   sd_bus* const bus = sdbus();
   Tessel::Ptr< SignalMonitor > signalMonitor;
   if( method == "ReloadUnit" || method == "ReloadOrRestartUnit" ) {
      const Tessel::String unitPath = asyncManagerCallSO( "GetUnit", s1 );
      // The probe of "GetUnit" may have replaced the connection, so `bus` is not used here.
      signalMonitor = unitReloadingMonitorFactory( rawSdbus, unitPath );
   } else if( method == "ReloadOrTryRestartUnit" ) {
      throw SdbusSyncException( Tessel::concat(
         "Sdbus::managerCallSsO, method ", method, " doesn't support sync operations" ) );
   } else {
      signalMonitor = jobRemovedMonitorFactory( bus );
   }
   Orl::Optional< Tessel::String > object( asyncManagerCallSsO( method, s1, s2 ) );
   if( !signalMonitor->wait( object ) ) {
      object = asyncManagerCallSsO( method, s1, s2 );
      TESSEL_ASSERT(
         signalMonitor->wait( object ),
         "Orl::String Sodrel::Sdbus::managerCallSsO(const String&, const String&, const String&, "
         "bool)" );
   }
   return *std::move( object );
}

// Asynchronous manager calls

void Sdbus::asyncManagerCall( const Tessel::String& method ) {
   TRACE( 8, "" );
   Reply reply = callMethod(
      *this, sdbus(), method,
      [&] { return Tessel::concat( "Sdbus::asyncManagerCall, sd-bus call ", method, " failed" ); },
      "" );
   sd_bus_message_unref( reply.release() );
}

Orl::String Sdbus::asyncManagerCallSO( const Tessel::String& method, const Tessel::String& s ) {
   TRACE( 8, "" );
   Reply reply = callMethod(
      *this, sdbus(), method,
      [&] {
         return Tessel::concat(
            "Sdbus::asyncManagerCallSO, sd-bus call ", method, " ", s, " failed" );
      },
      "s", s.data() );
   return readPath( std::move( reply ), [&] {
      return Tessel::concat(
         "Sdbus::asyncManagerCallSO, message read failed when calling ", method, " ", s );
   } );
}

Orl::String Sdbus::asyncManagerCallSsO(
   const Tessel::String& method, const Tessel::String& s1, const Tessel::String& s2 ) {
   TRACE( 8, "" );
   Reply reply = callMethod(
      *this, sdbus(), method,
      [&] {
         return Tessel::concat(
            "Sdbus::asyncManagerCallSsO, sd-bus call ", method, " ", s1, " ", s2, " failed" );
      },
      "ss", s1.data(), s2.data() );
   return readPath( std::move( reply ), [&] {
      return Tessel::concat(
         "Sdbus::asyncManagerCallSsO, message read failed when calling ", method, " ", s1, " ",
         s2 );
   } );
}

} // namespace Sodrel
