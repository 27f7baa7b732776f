// What all trace benchmarks have in common.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace Bench {

inline constexpr const char* text = "abcdefghij-klmn.unit";

// Sends standard error to /dev/null for as long as it lives.
class StderrToNull {
 public:
   StderrToNull() {
      const int null = open( "/dev/null", O_WRONLY | O_CLOEXEC );
      dup2( null, STDERR_FILENO );
      close( null );
   }
   ~StderrToNull() {
      dup2( saved_, STDERR_FILENO );
      close( saved_ );
   }
   StderrToNull( const StderrToNull& ) = delete;
   StderrToNull& operator=( const StderrToNull& ) = delete;

 private:
   int saved_ = dup( STDERR_FILENO );
};

} // namespace Bench
