// A client of the library on a private bus with a scripted manager.
#pragma once

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <Sodrel/Sodrel.h>
#include <support/PrivateBus.h>
#include <support/ScriptedManager.h>
#include <support/SystemdNames.h>

#include "Moments.h"

namespace SodrelTest {

using Sodrel::Sdbus;
using Sodrel::sdbusFactory;

using Texts = std::vector< std::string >;

// Whether the process runs with a leak sanitizer.
bool leaksAreLookedFor();

// The words of an operation as the name of a test.
std::string nameOf( std::string operation );

// The beginnings of texts of exceptions.
inline const std::string callFailed = "Sodrel::SdbusCallException: Sdbus::";
inline const std::string syncFailed = "Sodrel::SdbusSyncException: ";
inline const std::string jobFailed = "Sodrel::SdbusJobException: JobRemovedMonitor::";
inline const std::string notOpened =
   "Sodrel::NoSdbusException: Sdbus::sdbus, failed to initialize sd-bus";

// Causes, as the texts end in them.
inline const std::string reset = ": Connection reset by peer";
inline const std::string nameIsGone = ": The name org.freedesktop.systemd1 was not provided by any "
                                      ".service files";

// What a process writes that a second reload without a start has ended.
testing::Matcher< const std::string& > assertionOfReload();

// The call that an operation makes, as the scripted manager names it, and how the text begins if it
// fails; of "unitPropertyS" it is the second one.
std::string callOf( const std::string& operation );
std::string failureOf( const std::string& operation );

// The reply that keeps the client's connection.
inline Action alive() {
   return reply( body( "v", "s", "running" ) );
}

class ALibraryClient : public testing::Test {
 protected:
   // Returns what an operation of the client returns, or what it throws as "class: text". The
   // operation is given by its words, as in "managerCallSsO StartUnit web.service replace", with
   // "async" as the last one if it is not to wait; "creation" is that of another client.
   std::string outcomeOf( const std::string& operation );

   // The same for a unit method with the mode "replace", waited for.
   std::string call( const std::string& method, const std::string& unit = "web.service" ) {
      return outcomeOf( "managerCallSsO " + method + " " + unit + " replace" );
   }

   // The outcome of a call whose script this is.
   std::string callScripted( const std::string& method, const Script& script );

   std::string reload() { return outcomeOf( "managerCall Reload" ); }
   std::string systemState() { return outcomeOf( "managerPropertyS SystemState" ); }
   void subscribe() { client->managerCall( "Subscribe", true ); }

   PrivateBus bus;
   ScriptedManager manager{
      bus,
      {
         { .name = "web.service", .activeState = "active" },
         { .name = "idle.service" },
         { .name = "simple.service",
           .activeState = "active",
           .canReload = false,
           .announcesStart = false },
         { .name = "crashed.service", .activeState = "failed", .startFails = true },
      }
   };
   Moments moments;
   Tessel::Ptr< Sdbus > client = sdbusFactory();
};

} // namespace SodrelTest
