// Child processes of tests: how they end, and what they write to standard error.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace SodrelTest {

// The exit status in a wait status; 128 plus the number of a signal, as in shells.
inline int exitStatus( int waitStatus ) {
   return WIFSIGNALED( waitStatus ) ? 128 + WTERMSIG( waitStatus ) : WEXITSTATUS( waitStatus );
}

// How a process ends.
inline int statusOf( pid_t process ) {
   int status = 0;
   EXPECT_EQ( waitpid( process, &status, 0 ), process );
   return exitStatus( status );
}

// The same for a child process that runs the body; 0 unless the body fails the test.
inline int statusOf( const std::function< void() >& body ) {
   const pid_t child = fork();
   if( child == 0 ) {
      body();
      _exit( testing::Test::HasFailure() );
   }
   return statusOf( child );
}

// What a child process that runs the body writes to standard error; its status must be 0.
inline std::string stderrOf( const std::function< void() >& body ) {
   int ends[2] = {};
   EXPECT_EQ( pipe( ends ), 0 );
   const pid_t child = fork();
   if( child == 0 ) {
      dup2( ends[1], STDERR_FILENO );
      close( ends[0] );
      close( ends[1] );
      body();
      _exit( testing::Test::HasFailure() );
   }
   close( ends[1] );
   std::string text;
   char piece[4096];
   for( ssize_t size = 0; ( size = read( ends[0], piece, sizeof piece ) ) > 0; ) {
      text.append( piece, static_cast< std::size_t >( size ) );
   }
   close( ends[0] );
   EXPECT_EQ( statusOf( child ), 0 );
   return text;
}

struct Outcome {
   std::string output; // including standard error
   int status;
};

// How a shell command ends.
inline Outcome run( const std::string& command ) {
   FILE* const pipe = popen( ( command + " 2>&1" ).c_str(), "r" );
   Outcome result{};
   char piece[4096];
   for( std::size_t size = 0; ( size = fread( piece, 1, sizeof piece, pipe ) ) > 0; ) {
      result.output.append( piece, size );
   }
   result.status = exitStatus( pclose( pipe ) );
   return result;
}

} // namespace SodrelTest
