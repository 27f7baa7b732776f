// What is printed of a record: a line for people or a JSON object for programs.
#pragma once

#include "TraceSet.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Fennet {

// The record's format with its arguments, "..." for what was cut, control characters as \xHH.
std::string textOf( const Record& record );

// "2026-11-21T02:32:38.123456789Z", and back: nanoseconds since 1970, where digits and the letter
// may be missing at the end of the fraction. Nothing when the text is no such time.
std::string formatTime( std::int64_t time );
std::optional< std::int64_t > parseTime( std::string_view text );

// A line like that of a text trace; `colours` for a terminal.
std::string lineOf( const TimedRecord& record, bool colours );

// A JSON object on one line.
std::string jsonOf( const TimedRecord& record );

} // namespace Fennet
