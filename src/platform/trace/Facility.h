// Text-trace facilities: named sets of enabled levels, set in code or by the environment.
//
// The environment variable TESSEL_TRACE enables levels for a whole process: facilities separated
// by ';', each with its levels separated by ',' or with '*' for all of them:
//
//    TESSEL_TRACE='Sodrel=5,8;SignalMonitor=*'
//
// A malformed value is reported once on standard error and ignored.
#pragma once

#include <platform/Export.h>

#include <atomic>
#include <cstdint>

namespace Orl {

/// A set of levels: bit n stands for level n, 0 to 31.
using TraceLevels = std::uint32_t;

/// Levels 0 to 31.
inline constexpr TraceLevels allTraceLevels = ~TraceLevels{ 0 };

/// A named facility. All handles with the same name share one set of levels, which exists until the
/// process ends; the handle itself has nothing to release.
///
/// Thread: any thread may read and set levels while others trace. A change becomes visible soon,
/// and orders no other memory access.
class TraceHandle {
 public:
   /// A handle of the facility `name`. Enables every level of it if `allLevels`. Borrows the name.
   constexpr TraceHandle( const char* name, bool allLevels ) : name_( name ) {
      if( allLevels ) {
         levelsIs( allTraceLevels );
      }
   }

   /// As given to the constructor.
   [[nodiscard]] const char* name() const { return name_; }
   /// The levels enabled in the facility.
   [[nodiscard]] TraceLevels levels() const { return shared().load( std::memory_order_relaxed ); }
   /// Enables these levels of the facility and no others.
   void levelsIs( TraceLevels levels ) { shared().store( levels, std::memory_order_relaxed ); }
   /// Returns whether a level, 0 to 31, is enabled.
   [[nodiscard]] bool enabled( int level ) const { return levels() >> level & 1; }

 private:
   // Looked up on first use, so that handles can be initialized at compile time, without a lock.
   std::atomic< TraceLevels >& shared() const {
      auto* const found = shared_.load( std::memory_order_acquire );
      return found ? *found : find();
   }
   TESSEL_EXPORT std::atomic< TraceLevels >& find() const;

   const char* name_;
   mutable std::atomic< std::atomic< TraceLevels >* > shared_ = nullptr;
};

} // namespace Orl
