// Which outcomes of a call are documented.
#pragma once

#include <cstddef>
#include <string>

namespace Sodrel::Soak {

// The classes of outcomes, in the order of a table's columns; the last is a violation.
enum class Outcome { returned, noBus, call, message, job, sync, undocumented };
inline constexpr std::size_t outcomes = 7;

// What a call's exception counts as: undocumented unless its text has a form of its class.
Outcome outcomeOf( const std::string& name, const std::string& text );

} // namespace Sodrel::Soak
