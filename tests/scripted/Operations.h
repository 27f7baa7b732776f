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
   // Makes no allocations of its own.
   std::function< Tessel::String( Sdbus& client ) > run;
   // Returns what it returns, as text, or throws.
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
