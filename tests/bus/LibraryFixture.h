// A client of the library on a private bus with a scripted manager.
#pragma once

#include <string>

#include <gmock/gmock.h>

#include <Sodrel/Sodrel.h>
#include <support/PrivateBus.h>
#include <support/ScriptedManager.h>

#include "Moments.h"

// Null unless the process runs with a leak sanitizer.
extern "C" [[gnu::weak]] void __lsan_disable(); // NOLINT(bugprone-reserved-identifier)
extern "C" [[gnu::weak]] void __lsan_enable();  // NOLINT(bugprone-reserved-identifier)

namespace Sodrel::Test {

inline bool leaksAreLookedFor() {
   return __lsan_disable != nullptr;
}

// The creation of a client that may fail. It then leaves its connection open by design, so that no
// leak is looked for meanwhile.
class Creation {
 public:
   Creation() {
      if( leaksAreLookedFor() ) {
         __lsan_disable();
      }
   }
   Creation( const Creation& ) = delete;
   Creation& operator=( const Creation& ) = delete;
   ~Creation() {
      if( leaksAreLookedFor() ) {
         __lsan_enable();
      }
   }

   // By this name valgrind knows the same: tests/memcheck.supp.
   [[gnu::noinline]] Tessel::Ptr< Sdbus > client() {
      Tessel::Ptr< Sdbus > client = sdbusFactory();
      made_ = static_cast< bool >( client ); // so that this frame is there while the client is made
      return client;
   }

 private:
   bool made_ = false;
};

inline std::string text( const Tessel::String& string ) {
   return std::string( string );
}

// What an operation returns, or the exception that it throws as "class: text".
template< typename Operation >
std::string outcomeOf( const Operation& operation ) {
   try {
      return text( operation() );
   } catch( const Tessel::Exception& exception ) {
      return std::string( exception.name() ) + ": " + exception.what();
   }
}

inline std::string creation() {
   return outcomeOf( [] { return Tessel::String( Creation().client() ? "created" : "null" ); } );
}

inline std::string jobOf( uint32_t id ) {
   return jobPath( id ).values.front();
}

// The reply that keeps the client's connection.
inline Action alive() {
   return reply( body( "v", "s", "running" ) );
}

class ALibraryClient : public testing::Test {
 protected:
   // "Reload", waited for.
   std::string reload() {
      return outcomeOf( [&]() -> Tessel::String {
         client->managerCall( "Reload", false );
         return "reloaded";
      } );
   }

   // A unit method with the mode "replace", waited for or not.
   std::string
   call( const std::string& method, const std::string& unit = "web.service", bool async = false ) {
      return outcomeOf(
         [&] { return client->managerCallSsO( method.c_str(), unit.c_str(), "replace", async ); } );
   }

   std::string systemState() {
      return outcomeOf( [&] { return client->managerPropertyS( "SystemState" ); } );
   }

   void subscribe() { client->managerCall( "Subscribe", true ); }

   PrivateBus bus;
   ScriptedManager manager{ bus,
                            {
                               { .name = "web.service", .activeState = "active" },
                               { .name = "idle.service" },
                            } };
   Moments moments;
   Tessel::Ptr< Sdbus > client = sdbusFactory();
};

} // namespace Sodrel::Test
