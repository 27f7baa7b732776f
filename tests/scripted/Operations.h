// The table of the library's operations, each with its golden sequence.
#pragma once

#include <scripted/Steps.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace SodrelTest {

struct Operation {
   std::string name;
   // Allocates nothing itself.
   std::function< Tessel::String( Sdbus& client ) > run;
   // What it returns, as a text, or throws.
   std::string result;
   Steps steps;
   // Scripts what systemd does.
   void ( *prepare )() = nullptr;
};

inline void PrintTo( const Operation& operation, std::ostream* stream ) {
   *stream << operation.name;
}

const std::vector< Operation >& operations();

} // namespace SodrelTest
