// What a scripted manager can be told to do, as plain values: a test's vocabulary.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Sodrel::Test {

inline constexpr const char* managerName = "org.freedesktop.systemd1";
inline constexpr const char* managerPath = "/org/freedesktop/systemd1";
inline constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
inline constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";
inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

// The object path of a unit, as systemd makes it of the unit's name.
std::string unitPath( const std::string& name );

using Words = std::vector< std::string >;

// The body of a message: its D-Bus signature, and the values in order, as text. An array is its
// count and then its elements; a variant is the signature of its contents and then the contents:
// body( "sa{sv}as", "org.freedesktop.systemd1.Unit", 1, "ActiveState", "s", "active", 0 ).
struct Body {
   std::string signature;
   Words values;
};

template< typename T >
std::string asText( const T& value ) {
   if constexpr( std::same_as< T, bool > ) {
      return value ? "true" : "false";
   } else if constexpr( std::is_arithmetic_v< T > ) {
      return std::to_string( value );
   } else {
      return value;
   }
}

template< typename... Values >
Body body( std::string signature, const Values&... values ) {
   return { std::move( signature ), { asText( values )... } };
}

// The body that is the path of a job: the reply to a job method.
Body jobPath( uint32_t id );

struct Action {
   enum class Kind {
      reply,
      error,
      signal,
      unitState,
      foreignJobs,
      standard,
      queueJob,
      finishJob,
      hold,
      raise,
      releaseName,
      acquireName,
      disconnect,
      connect,
      killBus,
      die,
   };
   Kind kind;
   Words words;
   bool byStranger = false;
};

using Script = std::vector< Action >;

// Replies to the call. The wrong type or an empty body are as good as any other.
Action reply( const Body& body = {} );

// Replies with a D-Bus error, with or without a message.
Action error( const std::string& name );
Action error( const std::string& name, const std::string& message );

// Emit a signal, whoever has subscribed: any at all, or one of the manager object.
Action signal(
   const std::string& path, const std::string& interface, const std::string& member,
   const Body& body );
Action signal( const std::string& member, const Body& body );
Action
jobRemoved( uint32_t id, const std::string& result, const std::string& unit = "any.service" );
Action reloading( bool active );
Action propertiesChanged( const std::string& unit, const Body& body );

// Emits the change of a unit's ActiveState, which the unit then has.
Action activeState( const std::string& unit, const std::string& state );

// Emits JobRemoved with "done" for each of `count` jobs, the first of which is `first`.
Action foreignJobs( uint32_t first, uint32_t count );

// The signal again, sent by a connection that does not own the manager's name.
Action byStranger( Action signal );

// Does all that a real manager does for this call; the next two are its halves for a job method:
// what happens up to the reply, and what happens from then on, with the job's natural result or
// another one.
Action standard();
Action queueJob();
Action finishJob( const std::string& result = "" );

// Keeps back the rest of this script until the event is raised. The arrival of a call raises an
// event named after the call, before the call's own script begins.
Action hold( const std::string& event );
Action raise( const std::string& event );

// Lose and regain the manager's name, or the whole connection, and with it the subscribers.
Action releaseName();
Action acquireName();
Action disconnect();
Action connect();

// Kill the bus, or the manager itself, once all earlier messages have been delivered.
Action killBus();
Action die();

// What goes over the control socket.
std::string packed( const Words& words );
Words unpacked( const std::string& text );
Words asWords( const Script& script );
Script asScript( const Words& words );

} // namespace Sodrel::Test
