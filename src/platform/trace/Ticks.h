// Which clock the records' ticks come from.
#pragma once

namespace Fennet::Impl {

// Whether the time stamp counter runs at one rate on all cores, whatever they sleep or clock. Where
// it does not, or there is none, ticks are the nanoseconds of CLOCK_MONOTONIC.
bool tscIsInvariant();

} // namespace Fennet::Impl
