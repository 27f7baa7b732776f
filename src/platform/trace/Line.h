// Lines on standard error: escaped, at most PIPE_BUF bytes long, and written in one piece.
#pragma once

#include <cerrno>
#include <climits>
#include <csignal>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace Tessel::Impl {

// Restores errno at the end of a scope, so that a trace can be placed anywhere.
class KeepErrno {
 public:
   KeepErrno() = default;
   ~KeepErrno() { errno = errno_; }
   KeepErrno( const KeepErrno& ) = delete;
   KeepErrno& operator=( const KeepErrno& ) = delete;

 private:
   int errno_ = errno;
};

// Keeps a signal that the calling thread's own writes raise, SIGPIPE or SIGXFSZ, from reaching the
// program: the write just fails.
class HeldSignal {
 public:
   explicit HeldSignal( int signal ) noexcept;
   ~HeldSignal();
   HeldSignal( const HeldSignal& ) = delete;
   HeldSignal& operator=( const HeldSignal& ) = delete;

 private:
   sigset_t signals_{};
   sigset_t mask_{};
   bool wasPending_;
};

// A line being composed. No line that is written whole needs an allocation, so a destructor can
// trace when memory has run out.
using Line = fmt::basic_memory_buffer< char, PIPE_BUF >;

// Appends the text with every control character (C0, DEL and C1) and every byte that is not UTF-8
// written as \xHH, so that it can neither end a line nor control a terminal.
void appendEscaped( Line& line, std::string_view text );
// Returns the escaped text as a string.
std::string escaped( std::string_view text );

// Writes the line with a single write. Every kind of file accepts PIPE_BUF bytes in one piece, so
// lines from several threads or processes never mix and no lock is needed. A longer line is cut and
// ends with "..."; one that standard error does not accept is lost.
void writeLine( Line& line );

// Writes a message from the trace facilities about themselves, escaped. Preserves errno.
void report( std::string_view text );

} // namespace Tessel::Impl
