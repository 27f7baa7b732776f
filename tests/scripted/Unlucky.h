// Monitors whose wait returns what a test says: those of a job or a unit never report failure by
// themselves.
#pragma once

#include <deque>

namespace SodrelTest {

// What the waits to come return. While there are any, the factories of these monitors, which are
// replaced by name, make monitors that log the object and wait no further.
extern std::deque< bool > unluckyWaits;

} // namespace SodrelTest
