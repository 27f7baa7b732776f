// How the demo tells what it does: each call, what came of it, and how long it took.
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

   // Begins a group of steps and says what they are about.
   void chapter( const char* title, const char* about );

   // Runs one operation and prints its result, or the exception that it throws. The step is as it
   // should be when the result, or the exception's class, ": " and text, fits `expected`, a pattern
   // of fnmatch(3).
   void
   step( const char* call, const char* expected, const std::function< std::string() >& operation );

   // Shows the library's own traces among the steps, or no longer.
   void tracesAre( bool shown );
   void traceIs( const Tessel::TextTrace& trace ) override;

   // Prints the sum. Returns the exit status: 0 if every step went as it should.
   int finish();

 private:
   [[nodiscard]] std::string in( const char* colour, const std::string& text ) const;
   void line( const std::string& text );

   const bool coloured;
   int steps = 0;
   int wrong = 0;
};

} // namespace Demo
