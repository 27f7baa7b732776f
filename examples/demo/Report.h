// The report of the demo: each call, its outcome, and how long it took.
#pragma once

#include <platform/trace/TextTrace.h>

#include <functional>
#include <string>

namespace Demo {

// Prints to standard output, in colour on a terminal unless NO_COLOR is set.
class Report : public Tessel::TraceSink {
 public:
   Report();
   Report( const Report& ) = delete;
   Report& operator=( const Report& ) = delete;
   ~Report();

   // Begins a group of steps with a title and an explanation.
   void chapter( const char* title, const char* about );

   // Runs one operation and prints its result, or the exception that it throws. The step has
   // succeeded if the result, or the exception's class, ": " and its text, matches `expected`, a
   // pattern of fnmatch(3).
   void
   step( const char* call, const char* expected, const std::function< std::string() >& operation );

   // Starts or stops showing the library's own traces among the steps.
   void tracesAre( bool shown );
   void traceIs( const Tessel::TextTrace& trace ) override;

   // Prints the totals. Returns the exit status: 0 if every step has succeeded.
   int finish();

 private:
   [[nodiscard]] std::string in( const char* colour, const std::string& text ) const;
   void line( const std::string& text );

   const bool coloured;
   int steps = 0;
   int wrong = 0;
};

} // namespace Demo
