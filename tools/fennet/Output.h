// How a record is printed: as a line for people or as a JSON object for programs.
#pragma once

#include "TraceSet.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Fennet {

// Returns the record's format with its arguments, and "..." where something was cut. Control
// characters and invalid UTF-8 are written as \xHH.
std::string textOf( const Record& record );

// "2026-11-21T02:32:38.123456789Z".
std::string formatTime( std::int64_t time );
// Converts a time YYYY-MM-DD[THH:MM[:SS]] in UTC, which may have a fraction and a Z, to nanoseconds
// since 1970. Returns nothing if the text is not such a time.
std::optional< std::int64_t > parseTime( const std::string& text );

// Returns a line like that of a text trace, with `colours` for a terminal.
std::string lineOf( const TimedRecord& record, bool colours );

// Returns a JSON object on one line, in ASCII.
std::string jsonOf( const TimedRecord& record );

} // namespace Fennet
