// The command line of systemd-box.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Box {

extern const char* const usage;

struct Options {
   std::vector< std::filesystem::path > units;
   std::filesystem::path root = "/";
   std::vector< std::string > environment; // NAME=VALUE
   std::optional< std::chrono::milliseconds > timeLimit;
   std::string workingDirectory;
   bool check = false;
   bool help = false;
   std::vector< std::string > command;
};

// Reads the arguments, preceded by those in the variable SYSTEMD_BOX_OPTIONS. All paths are
// absolute afterwards. Throws Failure with the status wrongUse.
Options optionsOf( int argc, char** argv );

// Adds variables of the form NAME=VALUE to the environment of this process.
void addToEnvironment( const std::vector< std::string >& variables );

} // namespace Box
