// The table of the library's operations, with the sd-bus calls that each makes and what comes of a
// failure of each.
#pragma once

#include <Sodrel/Sodrel.h>

#include <support/ScriptedSdbus.h>

#include <ostream>
#include <vector>

namespace Sodrel::Test {

// One sd-bus call of an operation. Its outcome, when it fails, is what the operation then gives, or
// the exception with its text, in which {errno} and {message} stand for the cause.
struct Step {
   const char* function;
   const char* once;
   // When all later calls fail, too; the same if null.
   const char* forEver = nullptr;
};

struct Operation {
   const char* name;
   void ( *prepare )( ScriptedSdbus& script );
   Tessel::String ( *run )( Sdbus& client, ScriptedSdbus& script );
   const char* result;
   std::vector< Step > steps;
   bool allocates = true;
};

inline void PrintTo( const Operation& operation, std::ostream* stream ) {
   *stream << operation.name;
}

const std::vector< Operation >& operations();

} // namespace Sodrel::Test
