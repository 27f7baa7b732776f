// What a process writes to its standard error.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace PlatformTest {

// Runs the body in a process that has not traced yet; gives what it writes to standard error.
inline std::string stderrOf( const std::function< void() >& body ) {
   int ends[2] = {};
   EXPECT_EQ( pipe( ends ), 0 );
   const pid_t child = fork();
   if( child == 0 ) {
      dup2( ends[1], STDERR_FILENO );
      close( ends[0] );
      close( ends[1] );
      body();
      _exit( 0 );
   }
   close( ends[1] );
   std::string text;
   char piece[4096];
   for( ssize_t size = 0; ( size = read( ends[0], piece, sizeof piece ) ) > 0; ) {
      text.append( piece, static_cast< std::size_t >( size ) );
   }
   close( ends[0] );
   int status = -1;
   waitpid( child, &status, 0 );
   EXPECT_EQ( status, 0 );
   return text;
}

using Texts = std::vector< std::string >;

inline Texts lastWords( const std::string& lines ) {
   Texts words;
   std::istringstream stream( lines );
   for( std::string line; std::getline( stream, line ); ) {
      words.push_back( line.substr( line.rfind( ' ' ) + 1 ) );
   }
   return words;
}

} // namespace PlatformTest
