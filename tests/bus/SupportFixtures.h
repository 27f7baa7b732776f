// A plain sd-bus client, and a scripted manager with a few units.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <support/BusPointers.h>
#include <support/PrivateBus.h>
#include <support/ScriptedManager.h>
#include <support/ScriptedManagerMessages.h>

namespace Sodrel::Test {

using Texts = std::vector< std::string >;

inline BusPtr systemBus() {
   sd_bus* raw = nullptr;
   checked( sd_bus_open_system( &raw ), "sd_bus_open_system" );
   return BusPtr( raw );
}

// A client that notes every message it receives, in the order of the wire.
class Client {
 public:
   Client() : bus( systemBus() ) {
      checked( sd_bus_add_filter( bus.get(), nullptr, note, &received ), "sd_bus_add_filter" );
      checked(
         sd_bus_add_match(
            bus.get(), nullptr, "type='signal',sender='org.freedesktop.systemd1'", nullptr,
            nullptr ),
         "sd_bus_add_match" );
      drain();
      received.clear();
   }

   // Sends a call whose reply is noted too.
   template< typename... Arguments >
   void send( const char* method, const Arguments&... arguments ) {
      checked(
         sd_bus_call_method_async(
            bus.get(), nullptr, managerName, managerPath, managerInterface, method, note, &received,
            std::string( sizeof...( arguments ), 's' ).c_str(), arguments... ),
         "sd_bus_call_method_async" );
      checked( sd_bus_flush( bus.get() ), "sd_bus_flush" );
   }

   // Makes a call; returns the reply's text, or the error's name and message.
   template< typename... Arguments >
   std::string call( const char* method, const Arguments&... arguments ) {
      return callAt( managerPath, managerInterface, method, arguments... );
   }

   template< typename... Arguments >
   std::string callAt(
      const std::string& path, const char* interface, const char* method,
      const Arguments&... arguments ) {
      BusError error;
      sd_bus_message* raw = nullptr;
      const int result = sd_bus_call_method(
         bus.get(), managerName, path.c_str(), interface, method, &error, &raw,
         std::string( sizeof...( arguments ), 's' ).c_str(), arguments... );
      const MessagePtr reply( raw );
      if( result >= 0 ) {
         return messageText( raw );
      }
      return std::string( error.name ) + ": " + ( error.message ? error.message : "(none)" );
   }

   std::string property( const std::string& path, const char* interface, const char* name ) {
      return callAt( path, propertiesInterface, "Get", interface, name );
   }

   // Returns what has been received and not been taken yet.
   Texts taken() {
      drain();
      return std::exchange( received, {} );
   }

   // Returns at least so many of them, and waits for those that are not there yet.
   Texts taken( size_t count ) {
      for( drain(); received.size() < count; drain() ) {
         checked( sd_bus_wait( bus.get(), UINT64_MAX ), "sd_bus_wait" );
      }
      return taken();
   }

   sd_bus* raw() { return bus.get(); }

 private:
   static int note( sd_bus_message* message, void* received, sd_bus_error* ) noexcept {
      const bool isSignal = sd_bus_message_is_signal( message, nullptr, nullptr ) > 0;
      const sd_bus_error* error = sd_bus_message_get_error( message );
      std::string text = isSignal ? "" : "reply ";
      text += error != nullptr ? error->name : messageText( message );
      checked( sd_bus_message_rewind( message, true ), "sd_bus_message_rewind" );
      static_cast< Texts* >( received )->push_back( text );
      return isSignal ? 0 : 1;
   }

   void drain() {
      while( sd_bus_process( bus.get(), nullptr ) > 0 ) {
      }
   }

   Texts received;
   BusPtr bus;
};

struct AScriptedManager : testing::Test {
   PrivateBus bus;
   ScriptedManager manager{
      bus,
      {
         { .name = "web.service", .activeState = "active" },
         { .name = "simple.service",
           .activeState = "active",
           .canReload = false,
           .announcesStart = false },
         { .name = "idle.service" },
         { .name = "crashed.service", .activeState = "failed", .startFails = true },
      }
   };
};

} // namespace Sodrel::Test
