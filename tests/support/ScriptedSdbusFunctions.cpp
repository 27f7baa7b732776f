// The replaced sd_bus_* functions.
#include <support/ScriptedSdbus.h>

#include <support/ScriptedClock.h>
#include <support/ScriptedLog.h>
#include <support/SystemdNames.h>

#include <cerrno>
#include <cstdarg>
#include <string>

namespace {

using SodrelTest::Answer;
using SodrelTest::scriptedSdbus;
using SodrelTest::UnwatchedMemory;

// Shows whether the caller passed an address for the named result.
struct Out {
   const void* address;
   const char* name;
};

// An argument as the log shows it.
std::string show( const char* text ) {
   return !text ? "null" : *text ? text : "''";
}

std::string show( const std::string& text ) {
   return text;
}

std::string show( Out out ) {
   return out.address ? out.name : "null";
}

template< typename T >
std::string show( const T* object ) {
   return scriptedSdbus().nameOf( object );
}

template< typename First, typename... Rest >
std::string list( const First& first, const Rest&... rest ) {
   return ( show( first ) + ... + ( ", " + show( rest ) ) );
}

template< typename... Args >
void log( const char* function, const Args&... arguments ) {
   SodrelTest::logLine( std::string( function ) + "( " + list( arguments... ) + " )" );
}

// The script's result for a call.
template< typename... Args >
Answer called( const char* function, Answer usual, const Args&... arguments ) {
   return scriptedSdbus().called( function, list( arguments... ), std::move( usual ) );
}

// sd-bus's own result for a connection.
Answer onBus( const sd_bus* bus, Answer usual, int closed = -ENOTCONN ) {
   if( !bus ) {
      return { .result = -EINVAL, .certain = true };
   }
   return bus->open ? usual : Answer{ .result = closed, .certain = true };
}

// Stores the results of the call if it succeeds.
int replied( const Answer& answer, sd_bus_error* error, sd_bus_message** reply ) {
   scriptedSdbus().errorIs( error, answer );
   if( answer.result >= 0 && answer.reply ) {
      *reply = scriptedSdbus().newReply( *answer.reply );
   }
   return answer.result;
}

} // namespace

extern "C" {

int sd_bus_open_system( sd_bus** bus ) {
   const UnwatchedMemory unwatched;
   const Answer answer = called( __func__, {}, Out{ bus, "bus" } );
   if( answer.result >= 0 ) {
      *bus = scriptedSdbus().newBus();
   }
   return answer.result;
}

sd_bus* sd_bus_flush_close_unref( sd_bus* bus ) {
   const UnwatchedMemory unwatched;
   log( __func__, bus );
   scriptedSdbus().released( bus );
   return nullptr;
}

int sd_bus_get_property_string(
   sd_bus* bus, const char* destination, const char* path, const char* interface,
   const char* member, sd_bus_error* error, char** value ) {
   const UnwatchedMemory unwatched;
   const Answer answer = called(
      error ? __func__ : "probe", onBus( bus, SodrelTest::gives( "running" ) ), bus, destination,
      path, interface, member, Out{ error, "error" }, Out{ value, "value" } );
   scriptedSdbus().errorIs( error, answer );
   if( answer.result >= 0 && answer.text ) {
      *value = scriptedSdbus().newText( *answer.text );
   }
   return answer.result;
}

int sd_bus_get_property(
   sd_bus* bus, const char* destination, const char* path, const char* interface,
   const char* member, sd_bus_error* error, sd_bus_message** reply, const char* type ) {
   const UnwatchedMemory unwatched;
   const Answer answer = called(
      __func__, onBus( bus, SodrelTest::replies( SodrelTest::b( true ) ) ), bus, destination, path,
      interface, member, Out{ error, "error" }, Out{ reply, "reply" }, type );
   return replied( answer, error, reply );
}

int sd_bus_call_method(
   sd_bus* bus, const char* destination, const char* path, const char* interface,
   const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ... ) {
   const UnwatchedMemory unwatched;
   std::string values = show( types );
   std::va_list arguments;
   va_start( arguments, types );
   for( const char* type = types; *type; ++type ) {
      values += ", " + show( va_arg( arguments, const char* ) );
   }
   va_end( arguments );
   const bool getsUnit = std::string_view( member ) == "GetUnit";
   const SodrelTest::Content object =
      SodrelTest::o( getsUnit ? SodrelTest::fooPath : SodrelTest::jobPath );
   const Answer answer = called(
      __func__, onBus( bus, SodrelTest::replies( object ) ), bus, destination, path, interface,
      member, Out{ error, "error" }, Out{ reply, "reply" }, values );
   return replied( answer, error, reply );
}

sd_bus_message* sd_bus_message_unref( sd_bus_message* message ) {
   const UnwatchedMemory unwatched;
   log( __func__, message );
   scriptedSdbus().released( message );
   return nullptr;
}

int sd_bus_message_read( sd_bus_message* message, const char* types, ... ) {
   const UnwatchedMemory unwatched;
   std::va_list values;
   va_start( values, types );
   std::string shown = show( types );
   if( shown == "v" ) {
      std::va_list contents;
      va_copy( contents, values );
      shown += ", " + show( va_arg( contents, const char* ) );
      va_end( contents );
   }
   Answer answer = called( __func__, { .result = 1 }, message, shown );
   if( answer.result > 0 ) {
      answer.result = message->read( types, values );
   }
   va_end( values );
   return answer.result;
}

int sd_bus_message_enter_container( sd_bus_message* message, char type, const char* contents ) {
   const UnwatchedMemory unwatched;
   const Answer answer =
      called( __func__, { .result = 1 }, message, std::string( 1, type ), contents );
   return answer.result > 0 ? message->enter( type, contents ) : answer.result;
}

// Exiting and skipping take effect even if a script makes them fail, which shows whether the
// library checks the result.
int sd_bus_message_exit_container( sd_bus_message* message ) {
   const UnwatchedMemory unwatched;
   const Answer answer = called( __func__, { .result = 1 }, message );
   const int left = message->exit();
   return answer.result > 0 ? left : answer.result;
}

int sd_bus_message_skip( sd_bus_message* message, const char* type ) {
   const UnwatchedMemory unwatched;
   const Answer answer = called( __func__, { .result = 1 }, message, type );
   const int skipped = message->skip( type );
   return answer.result > 0 ? skipped : answer.result;
}

int sd_bus_error_set( sd_bus_error* error, const char* name, const char* message ) {
   const UnwatchedMemory unwatched;
   log( __func__, Out{ error, "error" }, name, message );
   scriptedSdbus().errorIs( error, { .errorName = name, .errorMessage = message } );
   return -EIO;
}

void sd_bus_error_free( sd_bus_error* error ) {
   const UnwatchedMemory unwatched;
   if( !error ) {
      log( __func__, "null" );
   } else if( error->name || error->message ) {
      log( __func__, error->name, error->message );
   } else {
      log( __func__, "empty" );
   }
   scriptedSdbus().errorFreed( error );
}

int sd_bus_match_signal(
   sd_bus* bus, sd_bus_slot** slot, const char* sender, const char* path, const char* interface,
   const char* member, sd_bus_message_handler_t callback, void* userdata ) {
   const UnwatchedMemory unwatched;
   const Answer answer = called(
      __func__, onBus( bus, {} ), bus, Out{ slot, "slot" }, sender, path, interface, member,
      callback ? "callback" : "null", Out{ userdata, "userdata" } );
   if( answer.result >= 0 ) {
      *slot = scriptedSdbus().newSlot( { {}, bus, path, interface, member, callback, userdata } );
   }
   return answer.result;
}

sd_bus_slot* sd_bus_slot_unref( sd_bus_slot* slot ) {
   const UnwatchedMemory unwatched;
   log( __func__, slot );
   scriptedSdbus().released( slot );
   return nullptr;
}

int sd_bus_process( sd_bus* bus, sd_bus_message** message ) {
   const UnwatchedMemory unwatched;
   const Answer answer =
      called( __func__, onBus( bus, {}, -ECONNRESET ), bus, Out{ message, "message" } );
   for( const SodrelTest::Signal& signal : answer.signals ) {
      scriptedSdbus().dispatch( bus, signal );
   }
   return answer.result;
}

// Waits until the timeout, which moves the clock, unless sd_bus_process has more to do.
int sd_bus_wait( sd_bus* bus, std::uint64_t microseconds ) {
   const UnwatchedMemory unwatched;
   const bool more = scriptedSdbus().expectsMore( "sd_bus_process" );
   const Answer answer = called(
      __func__, onBus( bus, { .result = more ? 1 : 0 } ), bus, std::to_string( microseconds ) );
   if( answer.result == 0 ) {
      SodrelTest::clockMoves( microseconds );
   }
   return answer.result;
}

} // extern "C"
