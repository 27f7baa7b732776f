// What the scripted tests share: a script, a clock, one log of calls and traces, and the check that
// everything that was made has been released.
#pragma once

#include <Sodrel/Sodrel.h>

#include <platform/trace/TextTrace.h>
#include <support/ScriptedClock.h>
#include <support/ScriptedLog.h>
#include <support/ScriptedSdbus.h>

#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

namespace Sodrel::Test {

// The name and the text of the exception that `action` throws, or "nothing".
std::string thrownBy( const std::function< void() >& action );

// Lines of the log, so that tests show what differs. A probe that succeeds has two.
std::string probe( const char* bus );
std::string probed( const char* bus );
std::string managerRead( const char* bus, const char* property );
// `arguments` starts with the D-Bus types.
std::string managerCall( const char* bus, const char* method, const char* arguments );

// Entities of the library that are alive, "" when there are none.
std::string livingEntities();

class ScriptedTest : public testing::Test, private Tessel::TraceSink {
 public:
   ScriptedTest( const ScriptedTest& ) = delete;
   ScriptedTest& operator=( const ScriptedTest& ) = delete;

 protected:
   ScriptedTest();
   ~ScriptedTest() override;
   void TearDown() override;

   // A client on bus1; its creation is not in the log.
   Tessel::Ptr< Sdbus > createdSdbus();

   // Compares the whole log with these lines, and empties it.
   void expectLog(
      std::initializer_list< std::string > lines, const char* file = __builtin_FILE(),
      int line = __builtin_LINE() );

   // What must still be there at the end of the test.
   void expectLeftOpen( const std::string& names ) { leftOpen_ = names; }

   ScriptedSdbus script;
   ScriptedClock clock;

 private:
   void traceIs( const Tessel::TextTrace& trace ) override;

   std::string leftOpen_;
};

// With a client on bus1, whose creation is not in the log.
class ClientTest : public ScriptedTest {
 protected:
   void TearDown() override;

   Tessel::Ptr< Sdbus > client = createdSdbus();
};

} // namespace Sodrel::Test
