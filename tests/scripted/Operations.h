// The table of the library's operations, each with its golden sequence.
#pragma once

#include <scripted/Steps.h>

#include <ostream>
#include <vector>

namespace SodrelTest {

struct Operation {
   const char* name;
   // What it returns, as a text, or throws.
   std::string result;
   Tessel::String ( *run )( Sdbus& client );
   Steps steps;
   // Scripts what systemd does.
   void ( *prepare )() = nullptr;
};

inline void PrintTo( const Operation& operation, std::ostream* stream ) {
   *stream << operation.name;
}

const std::vector< Operation >& operations();

} // namespace SodrelTest
