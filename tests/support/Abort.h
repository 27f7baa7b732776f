// What a process has on standard error when it aborts.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace SodrelTest {

// Matches the output of a process that aborts, without the line that qemu adds to it.
inline testing::Matcher< const std::string& >
beforeAbort( const testing::Matcher< const std::string& >& output ) {
   return testing::ResultOf(
      []( std::string text ) {
         const std::string added = "qemu: uncaught target signal 6 (Aborted) - core dumped\n";
         if( text.ends_with( added ) ) {
            text.resize( text.size() - added.size() );
         }
         return text;
      },
      output );
}

} // namespace SodrelTest
