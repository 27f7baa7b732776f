// What is printed of a record: a line for people or a JSON object for programs.
#pragma once

#include "TraceSet.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Fennet {

// The record's format with its arguments, "..." for what was cut. Control characters and what is
// not UTF-8 are written as \xHH.
std::string textOf( const Record& record );

// "2026-11-21T02:32:38.123456789Z".
std::string formatTime( std::int64_t time );
// Nanoseconds since 1970 of a time YYYY-MM-DD[THH:MM[:SS]] in UTC, which may have a fraction and a
// Z; nothing if the text is not such a time.
std::optional< std::int64_t > parseTime( const std::string& text );

// A line like that of a text trace; `colours` for a terminal.
std::string lineOf( const TimedRecord& record, bool colours );

// A JSON object on one line, in ASCII.
std::string jsonOf( const TimedRecord& record );

} // namespace Fennet
