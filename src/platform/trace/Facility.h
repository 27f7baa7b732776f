// Text-trace facilities: named sets of enabled levels, set in code or by the environment.
//
// The environment variable TESSEL_TRACE enables levels for a whole process: facilities separated
// by ';', each with its levels separated by ',' or with '*' for all of them:
//
//    TESSEL_TRACE='Sodrel=5,8;SignalMonitor=*'
//
// A malformed value is reported once on standard error and enables nothing.
#pragma once

#include <platform/Export.h>

#include <atomic>
#include <cstdint>
#include <string_view>

namespace Orl {

// A set of levels: bit n stands for level n, 0 to 31.
using TraceLevels = std::uint32_t;

// Levels 0 to 31.
inline constexpr TraceLevels allTraceLevels = ~TraceLevels{ 0 };

// A named facility. All handles of one name share one set of levels, which lives until the
// process ends; the handle itself has nothing to release.
//
// Thread: levels may be read and set by any thread while others trace. A change is seen soon,
// and orders nothing else.
class TESSEL_EXPORT TraceHandle {
 public:
   // Opens the facility `name`, with every level enabled when `allLevels`, else with what the code
   // or the environment has enabled for that name. Borrows the name.
   TraceHandle( const char* name, bool allLevels );

   // As given to the constructor.
   [[nodiscard]] const char* name() const { return name_; }
   // The levels that are enabled for all handles of the name.
   [[nodiscard]] TraceLevels levels() const { return levels_->load( std::memory_order_relaxed ); }
   // Enables these levels and no others, for all handles of the name.
   void levelsIs( TraceLevels levels ) { levels_->store( levels, std::memory_order_relaxed ); }
   // Whether a level is; `level` is 0 to 31.
   [[nodiscard]] bool enabled( int level ) const { return levels() >> level & 1; }

 private:
   const char* name_;
   std::atomic< TraceLevels >* levels_;
};

// Read and set the levels of a facility, which need not have been used yet.
[[nodiscard]] TESSEL_EXPORT TraceLevels traceLevels( std::string_view facility );
TESSEL_EXPORT void traceLevelsIs( std::string_view facility, TraceLevels levels );

} // namespace Orl
