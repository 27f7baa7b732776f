// Reading the virtual tables of a loaded library.
#pragma once

#include <string>
#include <vector>

// What stands in each virtual slot of a class that libSodrel or libSodrelPlatform exports:
// "destructor", "deleting destructor", a qualified operation with its parameters, "pure", or
// "inline" for a function that every library has of its own. Empty when there is no such class.
std::vector< std::string > virtualSlots( const char* mangledClass );
