// The demo's output.
#include "Report.h"

#include <Sodrel/Exceptions.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fnmatch.h>
#include <unistd.h>

namespace Demo {

namespace {

constexpr const char* bold = "1";
constexpr const char* dim = "2";
constexpr const char* red = "1;31";
constexpr const char* green = "32";
constexpr const char* yellow = "33";
constexpr const char* cyan = "36";

const std::string margin( 6, ' ' );

std::string padded( std::string text, std::size_t width ) {
   text.resize( std::max( text.size(), width ), ' ' );
   return text;
}

} // namespace

Report::Report() : coloured( isatty( STDOUT_FILENO ) != 0 && !std::getenv( "NO_COLOR" ) ) {
   Tessel::traceSinkIs( this );
}

Report::~Report() {
   Tessel::traceSinkIs( nullptr );
}

std::string Report::in( const char* colour, const std::string& text ) const {
   return coloured ? std::string( "\033[" ) + colour + "m" + text + "\033[0m" : text;
}

// Each line is written immediately, so the last line of a log shows where a demo stopped.
void Report::line( const std::string& text ) {
   std::puts( text.c_str() );
   std::fflush( stdout );
}

void Report::chapter( const char* title, const char* about ) {
   line( "\n" + in( bold, title ) + "\n" + in( dim, about ) + "\n" );
}

void Report::step(
   const char* call, const char* expected, const std::function< std::string() >& operation ) {
   ++steps;
   line( padded( std::to_string( steps ), margin.size() ) + in( bold, call ) );

   std::string outcome;
   std::string thrown; // the class, if any
   const auto start = std::chrono::steady_clock::now();
   try {
      outcome = operation();
   } catch( const Tessel::Exception& error ) {
      thrown = std::string( std::string_view( error.name() ) );
      outcome = error.what();
   }
   const std::chrono::duration< double, std::milli > taken =
      std::chrono::steady_clock::now() - start;

   std::array< char, 32 > time{};
   std::snprintf( time.data(), time.size(), "   %.1f ms", taken.count() );
   if( thrown.empty() ) {
      line( margin + in( green, "-> " + outcome ) + in( dim, time.data() ) );
   } else {
      line( margin + in( yellow, "throws " + thrown ) + in( dim, time.data() ) );
      line( margin + in( yellow, outcome ) );
      outcome = thrown + ": " + outcome;
   }
   if( fnmatch( expected, outcome.c_str(), 0 ) != 0 ) {
      ++wrong;
      line( margin + in( red, "WRONG, should be: " ) + expected );
   }
}

void Report::tracesAre( bool shown ) {
   for( const char* facility : { "Sodrel", "SignalMonitor" } ) {
      Orl::TraceHandle( facility, false ).levelsIs( shown ? Orl::allTraceLevels : 0 );
   }
}

void Report::traceIs( const Tessel::TextTrace& trace ) {
   const std::string origin = std::string( trace.facility ) + "/" + std::to_string( trace.level );
   line(
      margin +
      in( cyan, "| " + padded( origin, 16 ) + trace.function + ": " + std::string( trace.text ) ) );
}

int Report::finish() {
   const std::string sum =
      std::to_string( steps - wrong ) + " of " + std::to_string( steps ) + " steps succeeded";
   line( "\n" + in( wrong > 0 ? red : green, sum ) );
   return wrong > 0 ? 1 : 0;
}

} // namespace Demo
