// fennet-read: prints, filters, follows and exports ring-buffer traces.
#include "Ctf.h"
#include "Output.h"
#include "TraceSet.h"

#include <platform/trace/Line.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include <argp.h>
#include <regex.h>
#include <unistd.h>

namespace {

using Fennet::TimedRecord;

// A POSIX extended regular expression.
class Pattern {
 public:
   explicit Pattern( const char* text )
      : isValid_( regcomp( &regex_, text, REG_EXTENDED | REG_NOSUB ) == 0 ) {}
   ~Pattern() {
      if( isValid_ ) {
         regfree( &regex_ );
      }
   }
   Pattern( const Pattern& ) = delete;
   Pattern& operator=( const Pattern& ) = delete;

   [[nodiscard]] bool isValid() const { return isValid_; }
   [[nodiscard]] bool matches( const std::string& text ) const {
      return regexec( &regex_, text.c_str(), 0, nullptr, 0 ) == 0;
   }

 private:
   regex_t regex_{};
   bool isValid_;
};

struct Options {
   std::optional< std::string > facility;
   std::optional< std::string > operation;
   std::optional< std::int64_t > since;
   std::optional< std::int64_t > until;
   std::optional< Pattern > grep;
   std::optional< std::string > ctf;
   bool follow = false;
   bool json = false;
   bool colours = isatty( STDOUT_FILENO ) && !std::getenv( "NO_COLOR" );
   std::vector< std::string > paths;
};

// Beyond the range of characters, so that there are no short options.
enum Key { facility = 256, operation, since, until, grep, follow, json, ctf, colour };

constexpr argp_option known[] = {
   { "facility", facility, "NAME", 0, "Print only records of this facility", 0 },
   { "operation", operation, "NAME", 0, "Print only records of this operation", 0 },
   { "since", since, "TIME", 0,
     "Print only records of this UTC time or later, "
     "YYYY-MM-DD[THH:MM[:SS]]",
     0 },
   { "until", until, "TIME", 0, "Print only records of this time or earlier", 0 },
   { "grep", grep, "REGEX", 0,
     "Print only records whose text matches this extended regular "
     "expression",
     0 },
   { "follow", follow, nullptr, 0, "Keep printing what living processes add", 0 },
   { "json", json, nullptr, 0, "Print one JSON object per record", 0 },
   { "ctf", ctf, "FOLDER", 0, "Write the Common Trace Format into a new folder instead", 0 },
   { "colour", colour, "WHEN", 0, "Use colours auto, always or never", 0 },
   {}
};

std::int64_t timeOption( const char* text, const argp_state* state ) {
   const auto time = Fennet::parseTime( text );
   if( !time ) {
      argp_error( state, "invalid time '%s': expected YYYY-MM-DD[THH:MM[:SS]]", text );
   }
   return time.value();
}

bool colourOption( const std::string& when, bool automatic, const argp_state* state ) {
   if( when != "auto" && when != "always" && when != "never" ) {
      argp_error( state, "invalid colour '%s': expected auto, always or never", when.c_str() );
   }
   return when == "always" || ( when == "auto" && automatic );
}

// argp_error exits.
error_t parse( int key, char* text, argp_state* state ) {
   Options& options = *static_cast< Options* >( state->input );
   switch( key ) {
   case facility:
      options.facility = text;
      break;
   case operation:
      options.operation = text;
      break;
   case since:
      options.since = timeOption( text, state );
      break;
   case until:
      options.until = timeOption( text, state );
      break;
   case grep:
      options.grep.emplace( text );
      if( !options.grep->isValid() ) {
         argp_error( state, "invalid regular expression '%s'", text );
      }
      break;
   case follow:
      options.follow = true;
      break;
   case json:
      options.json = true;
      break;
   case ctf:
      options.ctf = text;
      break;
   case colour:
      options.colours = colourOption( text, options.colours, state );
      break;
   case ARGP_KEY_ARG:
      options.paths.emplace_back( text );
      break;
   case ARGP_KEY_END:
      if( options.paths.empty() ) {
         argp_error( state, "no input given: expected a trace file or a folder" );
      }
      if( options.follow && options.ctf ) {
         argp_error( state, "--follow and --ctf cannot be combined" );
      }
      break;
   default:
      return ARGP_ERR_UNKNOWN;
   }
   return 0;
}

bool isWanted( const TimedRecord& timed, const Options& options ) {
   const Fennet::Description& description = *timed.record.description;
   return ( !options.facility || description.facility == *options.facility ) &&
          ( !options.operation || description.function == *options.operation ) &&
          ( !options.since || timed.time >= *options.since ) &&
          ( !options.until || timed.time <= *options.until ) &&
          ( !options.grep || options.grep->matches( Fennet::textOf( timed.record ) ) );
}

// Returns the exit status: 0, or 1 if a file could not be read completely.
int run( const Options& options ) {
   int status = EXIT_SUCCESS;
   Fennet::TraceSet traces( [&]( const std::string& complaint ) {
      std::fprintf( stderr, "fennet-read: %s\n", Tessel::Impl::escaped( complaint ).c_str() );
      status = EXIT_FAILURE;
   } );
   for( const std::string& path : options.paths ) {
      traces.add( path );
   }
   if( options.ctf ) {
      Fennet::CtfExport ctf( *options.ctf );
      traces.read( [&]( const TimedRecord& record ) {
         if( isWanted( record, options ) ) {
            ctf.add( record );
         }
      } );
      ctf.finish();
      return status;
   }
   const auto print = [&]( const TimedRecord& record ) {
      if( isWanted( record, options ) ) {
         std::puts(
            ( options.json ? jsonOf( record ) : lineOf( record, options.colours ) ).c_str() );
      }
   };
   for( bool more = options.follow;; ) {
      traces.read( print );
      if( std::fflush( stdout ) != 0 || !more ) {
         return std::ferror( stdout ) ? EXIT_FAILURE : status;
      }
      // Once all processes have ended, their last records are still read. Writes to mapped files
      // cause no events, so the files are polled.
      more = traces.mayGrow();
      constexpr useconds_t pause = 100'000;
      usleep( more ? pause : 0 );
   }
}

} // namespace

int main( int argc, char** argv ) {
   try {
      Options options;
      argp_err_exit_status = 2;
      constexpr argp syntax{ known,
                             parse,
                             "FILE|FOLDER...",
                             "Prints the records of ring-buffer trace files in the order of time.",
                             nullptr,
                             nullptr,
                             nullptr };
      argp_parse( &syntax, argc, argv, 0, nullptr, &options );
      return run( options );
   } catch( const std::exception& error ) {
      std::fprintf( stderr, "fennet-read: %s\n", error.what() );
      return EXIT_FAILURE;
   }
}
