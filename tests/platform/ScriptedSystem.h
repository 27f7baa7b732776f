// The system calls of traces; a test chooses which of them fail and what the clocks show.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <string>

namespace SodrelTest {

struct Clocks {
   std::int64_t monotonic = 0; // nanoseconds
   timespec realtime{};
};

// Which call of a function fails next, counted from 1; 0 for none.
struct ScriptedSystem {
   int posixFallocate = 0;
   int posixFallocateError = ENOSPC;
   int pwrite = 0;
   bool pwriteShort = false;
   int mmap = 0;
   int openOfTheBootId = 0;
   int writeToStderr = 0;
   int writeError = 0;

   std::optional< Clocks > clocks; // the system's own if not set
};
extern ScriptedSystem scripted;

// The files that the process has open, and how many bytes of them it has mapped.
struct OpenFiles {
   OpenFiles();
   bool operator==( const OpenFiles& ) const = default;

   std::multiset< std::string > descriptors;
   std::size_t mappedBytes;
};

} // namespace SodrelTest
