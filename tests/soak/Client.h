// One client of the soak and its report.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace SodrelTest {

// The outcomes of a call, in the order of a table's columns: it returned, threw one of the
// library's exceptions with a documented text, or did something else, which is a violation.
enum class Outcome { returned, noBus, call, message, job, sync, undocumented };
inline constexpr std::size_t outcomes = 7;

// Returns what an exception counts as.
Outcome outcomeOf( const std::string& name, const std::string& text );

inline constexpr unsigned clients = 4;

// A client's report, in memory shared by all processes.
struct Report {
   std::array< unsigned long, outcomes > calls{};
   unsigned long checked = 0; // how often a unit's state was compared
   unsigned long violations = 0;
   unsigned long reconnections = 0;
   double longest = 0; // seconds
   long descriptorsAtStart = 0;
   long descriptors = 0;
   long memoryAtStart = 0; // KiB
   long memory = 0;
};

struct Shared {
   std::atomic< bool > over = false;
   // Twice the number of kills of the client's unit, plus one during a kill.
   std::array< std::atomic< unsigned >, clients > kills{};
   std::array< Report, clients > reports{};
};
static_assert( std::atomic< unsigned >::is_always_lock_free );

// Calls the manager until the soak is over. Reports violations on standard error.
void runClient( Shared& shared, unsigned number, std::uint64_t seed );

} // namespace SodrelTest
