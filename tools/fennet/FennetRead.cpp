// fennet-read: prints, filters, follows and exports ring-buffer traces.
#include "Ctf.h"
#include "Output.h"
#include "TraceSet.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <getopt.h>
#include <regex.h>
#include <unistd.h>

namespace {

using Fennet::TimedRecord;

constexpr const char* usage =
   "Usage: fennet-read [OPTION]... FILE|FOLDER...\n"
   "Prints the records of ring-buffer trace files in the order of time.\n"
   "\n"
   "   --facility NAME    only records of this facility\n"
   "   --operation NAME   only records of this operation\n"
   "   --since TIME       only records of this time or later, as in 2026-11-21T02:32:38.5\n"
   "   --until TIME       only records of this time or earlier\n"
   "   --grep REGEX       only records whose text matches the extended regular expression\n"
   "   --follow           go on with what living processes add\n"
   "   --json             print one JSON object per record\n"
   "   --ctf FOLDER       write the Common Trace Format into a new folder instead\n"
   "   --colour WHEN      auto, always or never\n"
   "   --help             print this text\n";

struct WrongUse {
   std::string reason;
};

// An extended regular expression of the C library.
class Pattern {
 public:
   explicit Pattern( const char* text ) {
      if( regcomp( &regex_, text, REG_EXTENDED | REG_NOSUB ) != 0 ) {
         throw WrongUse{ std::string( "no regular expression: " ) + text };
      }
   }
   ~Pattern() { regfree( &regex_ ); }
   Pattern( const Pattern& ) = delete;
   Pattern& operator=( const Pattern& ) = delete;

   [[nodiscard]] bool matches( const std::string& text ) const {
      return regexec( &regex_, text.c_str(), 0, nullptr, 0 ) == 0;
   }

 private:
   regex_t regex_{};
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
   bool help = false;
   std::vector< std::string > paths;
};

std::int64_t timeOption( const char* text ) {
   const auto time = Fennet::parseTime( text );
   if( !time ) {
      throw WrongUse{ std::string( "no time: " ) + text };
   }
   return *time;
}

bool colourOption( std::string_view when, bool automatic ) {
   if( when != "auto" && when != "always" && when != "never" ) {
      throw WrongUse{ "--colour is auto, always or never" };
   }
   return when == "always" || ( when == "auto" && automatic );
}

void parse( int argc, char** argv, Options& options ) {
   constexpr option known[] = { { "facility", required_argument, nullptr, 'f' },
                                { "operation", required_argument, nullptr, 'o' },
                                { "since", required_argument, nullptr, 's' },
                                { "until", required_argument, nullptr, 'u' },
                                { "grep", required_argument, nullptr, 'g' },
                                { "follow", no_argument, nullptr, 'F' },
                                { "json", no_argument, nullptr, 'j' },
                                { "ctf", required_argument, nullptr, 'c' },
                                { "colour", required_argument, nullptr, 'C' },
                                { "help", no_argument, nullptr, 'h' },
                                {} };
   for( int found = 0; ( found = getopt_long( argc, argv, "", known, nullptr ) ) != -1; ) {
      switch( found ) {
      case 'f':
         options.facility = optarg;
         break;
      case 'o':
         options.operation = optarg;
         break;
      case 's':
         options.since = timeOption( optarg );
         break;
      case 'u':
         options.until = timeOption( optarg );
         break;
      case 'g':
         options.grep.emplace( optarg );
         break;
      case 'F':
         options.follow = true;
         break;
      case 'j':
         options.json = true;
         break;
      case 'c':
         options.ctf = optarg;
         break;
      case 'C':
         options.colours = colourOption( optarg, options.colours );
         break;
      case 'h':
         options.help = true;
         break;
      default:
         throw WrongUse{}; // getopt_long has said why
      }
   }
   options.paths.assign( argv + optind, argv + argc );
   if( options.paths.empty() && !options.help ) {
      throw WrongUse{ "no file and no folder is named" };
   }
   if( options.follow && options.ctf ) {
      throw WrongUse{ "--follow and --ctf do not go together" };
   }
}

bool isWanted( const TimedRecord& timed, const Options& options ) {
   const Fennet::Description& description = *timed.record.description;
   return ( !options.facility || description.facility == *options.facility ) &&
          ( !options.operation || description.function == *options.operation ) &&
          ( !options.since || timed.time >= *options.since ) &&
          ( !options.until || timed.time <= *options.until ) &&
          ( !options.grep || options.grep->matches( Fennet::textOf( timed.record ) ) );
}

std::vector< TimedRecord > readWanted( Fennet::TraceSet& traces, const Options& options ) {
   auto records = traces.read();
   std::erase_if(
      records, [&]( const TimedRecord& record ) { return !isWanted( record, options ); } );
   return records;
}

// False once nobody reads what is printed.
bool print( const std::vector< TimedRecord >& records, const Options& options ) {
   for( const TimedRecord& record : records ) {
      const std::string line =
         options.json ? Fennet::jsonOf( record ) : Fennet::lineOf( record, options.colours );
      std::fwrite( line.data(), 1, line.size(), stdout );
      std::fputc( '\n', stdout );
   }
   return std::fflush( stdout ) == 0;
}

// Gives the exit status: 0, or 1 when a file could not be read whole.
int run( const Options& options ) {
   int status = EXIT_SUCCESS;
   Fennet::TraceSet traces( [&]( const std::string& complaint ) {
      std::fprintf( stderr, "fennet-read: %s\n", complaint.c_str() );
      status = EXIT_FAILURE;
   } );
   for( const std::string& path : options.paths ) {
      traces.add( path );
   }
   if( options.ctf ) {
      Fennet::exportCtf( readWanted( traces, options ), *options.ctf );
      return status;
   }
   bool last = !options.follow;
   while( print( readWanted( traces, options ), options ) && !last ) {
      // Whoever has ended by now has its last records read once more. A mapped file tells nobody
      // that it has changed, so it is looked at from time to time.
      last = !traces.mayGrow();
      constexpr useconds_t pause = 100'000;
      usleep( last ? 0 : pause );
   }
   return std::ferror( stdout ) ? EXIT_FAILURE : status;
}

} // namespace

int main( int argc, char** argv ) {
   try {
      Options options;
      parse( argc, argv, options );
      if( options.help ) {
         std::fputs( usage, stdout );
         return EXIT_SUCCESS;
      }
      return run( options );
   } catch( const WrongUse& use ) {
      if( !use.reason.empty() ) {
         std::fprintf( stderr, "fennet-read: %s\n", use.reason.c_str() );
      }
      std::fputs( usage, stderr );
      return 2;
   } catch( const std::exception& error ) {
      std::fprintf( stderr, "fennet-read: %s\n", error.what() );
      return EXIT_FAILURE;
   }
}
