// Reading the command line and the options in the environment.
#include "Options.h"

#include "Process.h"

#include <cstdlib>
#include <deque>
#include <iterator>
#include <regex>
#include <sstream>
#include <system_error>

#include <unistd.h>

namespace Box {

const char* const usage =
   "usage: systemd-box [--units DIR]... [--root DIR] [--setenv NAME=VALUE]... [--timeout SECONDS] "
   "[--] COMMAND [ARG...]\n"
   "       systemd-box [--root DIR] --check\n";

namespace {

Failure refusal( const std::string& text ) {
   return { wrongUse, text };
}

std::filesystem::path directory( const std::string& option, const std::string& name ) {
   std::error_code error;
   std::filesystem::path path = std::filesystem::canonical( name, error );
   if( error || !std::filesystem::is_directory( path, error ) ||
       access( path.c_str(), R_OK | X_OK ) < 0 ) {
      throw refusal( option + ": '" + name + "' is not a readable directory" );
   }
   return path;
}

std::string variable( const std::string& text ) {
   static const std::regex form( "[A-Za-z_][A-Za-z_0-9]*=[^]*" );
   if( !std::regex_match( text, form ) ) {
      throw refusal( "--setenv: invalid variable '" + text + "': expected NAME=VALUE" );
   }
   return text;
}

std::chrono::milliseconds seconds( const std::string& text ) {
   static const std::regex form( "[0-9]{1,6}([.][0-9]+)?" );
   const double number = std::regex_match( text, form ) ? std::stod( text ) : 0;
   if( number <= 0 ) {
      throw refusal( "--timeout: invalid time '" + text + "': expected 0 < SECONDS < 1000000" );
   }
   return std::chrono::ceil< std::chrono::milliseconds >(
      std::chrono::duration< double >( number ) );
}

std::deque< std::string > argumentsOf( int argc, char** argv ) {
   std::deque< std::string > arguments;
   if( const char* const variable = std::getenv( "SYSTEMD_BOX_OPTIONS" ) ) {
      std::istringstream words( variable );
      arguments.assign( std::istream_iterator< std::string >( words ), {} );
   }
   arguments.insert( arguments.end(), argv + 1, argv + argc );
   return arguments;
}

} // namespace

Options optionsOf( int argc, char** argv ) {
   Options options;
   std::deque< std::string > arguments = argumentsOf( argc, argv );
   const auto next = [&] {
      std::string argument = arguments.front();
      arguments.pop_front();
      return argument;
   };
   while( !arguments.empty() && arguments.front().starts_with( '-' ) ) {
      const std::string option = next();
      const auto value = [&] {
         if( arguments.empty() ) {
            throw refusal( option + " requires a value" );
         }
         return next();
      };
      if( option == "--" ) {
         break;
      }
      if( option == "--help" ) {
         options.help = true;
         return options;
      }
      if( option == "--check" ) {
         options.check = true;
      } else if( option == "--units" ) {
         options.units.push_back( directory( option, value() ) );
      } else if( option == "--root" ) {
         options.root = directory( option, value() );
      } else if( option == "--setenv" ) {
         options.environment.push_back( variable( value() ) );
      } else if( option == "--timeout" ) {
         options.timeLimit = seconds( value() );
      } else {
         throw refusal( "unknown option '" + option + "'" );
      }
   }
   char* const name = get_current_dir_name(); // as the caller spells it
   options.workingDirectory = name ? name : "/";
   std::free( name );
   options.command.assign( arguments.begin(), arguments.end() );
   if( options.check && !options.command.empty() ) {
      throw refusal( "--check takes no command" );
   }
   if( options.check ) {
      options.command = { "true" };
   }
   if( options.command.empty() ) {
      throw refusal( "no command given" );
   }
   return options;
}

void addToEnvironment( const std::vector< std::string >& variables ) {
   for( const std::string& variable : variables ) {
      const std::size_t end = variable.find( '=' );
      setenv( variable.substr( 0, end ).c_str(), variable.substr( end + 1 ).c_str(), 1 );
   }
}

} // namespace Box
