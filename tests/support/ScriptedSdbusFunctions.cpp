// The replaced sd_bus_* functions.
#include <support/ScriptedSdbus.h>

#include <support/ScriptedClock.h>
#include <support/ScriptedLog.h>
#include <support/ScriptedMemory.h>

#include <cerrno>
#include <cstdarg>
#include <initializer_list>
#include <string>

namespace {

using Sodrel::Test::Answer;
using Sodrel::Test::NotLibrary;
using Sodrel::Test::scriptedSdbus;

// An argument as the log shows it.
std::string show( const char* text ) {
   if( !text ) {
      return "null";
   }
   return *text ? text : "''";
}

// Whether the caller gave an address for what is named.
std::string show( const void* address, const char* name ) {
   return address ? name : "null";
}

std::string list( std::initializer_list< std::string > arguments ) {
   std::string all;
   for( const std::string& argument : arguments ) {
      all += ( all.empty() ? "" : ", " ) + argument;
   }
   return all;
}

// What sd-bus itself says about a connection.
Answer onBus( const sd_bus* bus, Answer usual ) {
   if( !bus ) {
      return { .result = -EINVAL, .certain = true };
   }
   return bus->open ? usual : Answer{ .result = -ENOTCONN, .certain = true };
}

// Stores what the call brings, if it succeeds.
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
   const NotLibrary notLibrary;
   const Answer answer = scriptedSdbus().called( __func__, show( bus, "bus" ), {} );
   if( answer.result >= 0 ) {
      *bus = scriptedSdbus().newBus();
   }
   return answer.result;
}

sd_bus* sd_bus_flush_close_unref( sd_bus* bus ) {
   const NotLibrary notLibrary;
   Sodrel::Test::logLine( "sd_bus_flush_close_unref( " + scriptedSdbus().nameOf( bus ) + " )" );
   scriptedSdbus().released( bus );
   return nullptr;
}

int sd_bus_get_property_string(
   sd_bus* bus, const char* destination, const char* path, const char* interface,
   const char* member, sd_bus_error* error, char** value ) {
   const NotLibrary notLibrary;
   const Answer answer = scriptedSdbus().called(
      error ? __func__ : "probe",
      list( { scriptedSdbus().nameOf( bus ), show( destination ), show( path ), show( interface ),
              show( member ), show( error, "error" ), show( value, "value" ) } ),
      onBus( bus, Sodrel::Test::gives( "running" ) ) );
   scriptedSdbus().errorIs( error, answer );
   if( answer.result >= 0 && answer.text ) {
      *value = scriptedSdbus().newText( *answer.text );
   }
   return answer.result;
}

int sd_bus_get_property(
   sd_bus* bus, const char* destination, const char* path, const char* interface,
   const char* member, sd_bus_error* error, sd_bus_message** reply, const char* type ) {
   const NotLibrary notLibrary;
   const Answer answer = scriptedSdbus().called(
      __func__,
      list( { scriptedSdbus().nameOf( bus ), show( destination ), show( path ), show( interface ),
              show( member ), show( error, "error" ), show( reply, "reply" ), show( type ) } ),
      onBus( bus, Sodrel::Test::replies( Sodrel::Test::b( true ) ) ) );
   return replied( answer, error, reply );
}

int sd_bus_call_method(
   sd_bus* bus, const char* destination, const char* path, const char* interface,
   const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ... ) {
   const NotLibrary notLibrary;
   std::string arguments =
      list( { scriptedSdbus().nameOf( bus ), show( destination ), show( path ), show( interface ),
              show( member ), show( error, "error" ), show( reply, "reply" ), show( types ) } );
   std::va_list values;
   va_start( values, types );
   for( const char* type = types; *type; ++type ) {
      arguments += ", " + show( va_arg( values, const char* ) );
   }
   va_end( values );
   const bool getsUnit = std::string_view( member ) == "GetUnit";
   const Answer answer = scriptedSdbus().called(
      __func__, arguments,
      onBus(
         bus, Sodrel::Test::replies( Sodrel::Test::o(
                 getsUnit ? "/org/freedesktop/systemd1/unit/foo_2eservice"
                          : "/org/freedesktop/systemd1/job/42" ) ) ) );
   return replied( answer, error, reply );
}

sd_bus_message* sd_bus_message_unref( sd_bus_message* message ) {
   const NotLibrary notLibrary;
   Sodrel::Test::logLine( "sd_bus_message_unref( " + scriptedSdbus().nameOf( message ) + " )" );
   scriptedSdbus().released( message );
   return nullptr;
}

int sd_bus_message_read( sd_bus_message* message, const char* types, ... ) {
   const NotLibrary notLibrary;
   std::va_list values;
   va_start( values, types );
   std::string arguments = list( { scriptedSdbus().nameOf( message ), show( types ) } );
   if( std::string_view( types ) == "v" ) {
      std::va_list contents;
      va_copy( contents, values );
      arguments += ", " + show( va_arg( contents, const char* ) );
      va_end( contents );
   }
   Answer answer = scriptedSdbus().called( __func__, arguments, { .result = 1 } );
   if( answer.result > 0 ) {
      answer.result = message->read( types, values );
   }
   va_end( values );
   return answer.result;
}

int sd_bus_message_enter_container( sd_bus_message* message, char type, const char* contents ) {
   const NotLibrary notLibrary;
   const Answer answer = scriptedSdbus().called(
      __func__,
      list( { scriptedSdbus().nameOf( message ), std::string( 1, type ), show( contents ) } ),
      { .result = 1 } );
   return answer.result > 0 ? message->enter( type, contents ) : answer.result;
}

// Leaving and skipping happen even where a script makes them fail, so that it shows whether the
// library looks at the result.
int sd_bus_message_exit_container( sd_bus_message* message ) {
   const NotLibrary notLibrary;
   const Answer answer =
      scriptedSdbus().called( __func__, scriptedSdbus().nameOf( message ), { .result = 1 } );
   const int left = message->exit();
   return answer.result > 0 ? left : answer.result;
}

int sd_bus_message_skip( sd_bus_message* message, const char* type ) {
   const NotLibrary notLibrary;
   const Answer answer = scriptedSdbus().called(
      __func__, list( { scriptedSdbus().nameOf( message ), show( type ) } ), { .result = 1 } );
   const int skipped = message->skip( type );
   return answer.result > 0 ? skipped : answer.result;
}

int sd_bus_error_set( sd_bus_error* error, const char* name, const char* message ) {
   const NotLibrary notLibrary;
   Sodrel::Test::logLine(
      "sd_bus_error_set( " + list( { show( error, "error" ), show( name ), show( message ) } ) +
      " )" );
   scriptedSdbus().errorIs( error, { .errorName = name, .errorMessage = message } );
   return -EIO;
}

void sd_bus_error_free( sd_bus_error* error ) {
   const NotLibrary notLibrary;
   const bool filled = error->name || error->message;
   Sodrel::Test::logLine(
      "sd_bus_error_free( " +
      ( filled ? list( { show( error->name ), show( error->message ) } ) : "empty" ) + " )" );
   scriptedSdbus().errorFreed( error );
}

int sd_bus_match_signal(
   sd_bus* bus, sd_bus_slot** slot, const char* sender, const char* path, const char* interface,
   const char* member, sd_bus_message_handler_t callback, void* userdata ) {
   const NotLibrary notLibrary;
   const Answer answer = scriptedSdbus().called(
      __func__,
      list( { scriptedSdbus().nameOf( bus ), show( slot, "slot" ), show( sender ), show( path ),
              show( interface ), show( member ), callback ? "callback" : "null",
              show( userdata, "userdata" ) } ),
      onBus( bus, {} ) );
   if( answer.result >= 0 ) {
      *slot = scriptedSdbus().newSlot( { {}, bus, path, interface, member, callback, userdata } );
   }
   return answer.result;
}

sd_bus_slot* sd_bus_slot_unref( sd_bus_slot* slot ) {
   const NotLibrary notLibrary;
   Sodrel::Test::logLine( "sd_bus_slot_unref( " + scriptedSdbus().nameOf( slot ) + " )" );
   scriptedSdbus().released( slot );
   return nullptr;
}

int sd_bus_process( sd_bus* bus, sd_bus_message** message ) {
   const NotLibrary notLibrary;
   Answer closed = onBus( bus, {} );
   if( closed.result == -ENOTCONN ) {
      closed.result = -ECONNRESET;
   }
   const Answer answer = scriptedSdbus().called(
      __func__, list( { scriptedSdbus().nameOf( bus ), show( message, "message" ) } ), closed );
   for( const Sodrel::Test::Signal& signal : answer.signals ) {
      scriptedSdbus().dispatch( bus, signal );
   }
   return answer.result;
}

// Waits in vain, which moves the clock, unless there is more for sd_bus_process to do.
int sd_bus_wait( sd_bus* bus, std::uint64_t microseconds ) {
   const NotLibrary notLibrary;
   const Answer answer = scriptedSdbus().called(
      __func__, list( { scriptedSdbus().nameOf( bus ), std::to_string( microseconds ) } ),
      onBus( bus, { .result = scriptedSdbus().expectsMore( "sd_bus_process" ) ? 1 : 0 } ) );
   if( answer.result == 0 && Sodrel::Test::scriptedClock() ) {
      Sodrel::Test::scriptedClock()->advance( microseconds );
   }
   return answer.result;
}

} // extern "C"
