// Building blocks of the box's processes: errors, descriptors, children, and waiting.
#pragma once

#include <cerrno>
#include <chrono>
#include <functional>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <sys/types.h>
#include <unistd.h>

namespace Box {

// Exit statuses of the box itself.
inline constexpr int wrongUse = 2;
inline constexpr int bootFailed = 123;
inline constexpr int timeLimitReached = 124;
inline constexpr int cannotRunHere = 125;

// An error with its exit status. Any other exception means that no box can run here.
struct Failure : std::runtime_error {
   Failure( int exitStatus, const std::string& text )
      : std::runtime_error( text ), status( exitStatus ) {}

   int status;
};

// A signal that ends the box has arrived.
struct Interrupted {
   int signal;
};

// Returns the result of a system call. Throws std::system_error if it is negative.
template< typename Result >
Result checked( Result result, const std::string& what ) {
   if( result < 0 ) {
      throw std::system_error( errno, std::generic_category(), what );
   }
   return result;
}

// Writes the error to standard error. Returns the exit status.
int report( const std::exception& error );

// Owns a file descriptor.
class Descriptor {
 public:
   Descriptor() = default;
   explicit Descriptor( int number ) : number_( number ) {}
   Descriptor( Descriptor&& other ) noexcept : number_( std::exchange( other.number_, -1 ) ) {}
   Descriptor& operator=( Descriptor&& other ) noexcept {
      std::swap( number_, other.number_ );
      return *this;
   }
   ~Descriptor() { reset(); }

   void reset() {
      if( number_ >= 0 ) {
         close( std::exchange( number_, -1 ) );
      }
   }

   [[nodiscard]] int number() const { return number_; }
   // Returns a path that leads to the file, even if it has no other path.
   [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string( number_ ); }

 private:
   int number_ = -1;
};

// Opens an existing file.
Descriptor opened( const std::string& path, int flags );

// Returns the contents of a file; empty if it does not exist.
std::string contentsOf( const std::string& path );

// Returns a descriptor that becomes readable when the process ends.
Descriptor pidfdOf( pid_t process );

// Replaces the three standard streams.
void standardStreamsAre( const Descriptor& input, const Descriptor& output );

// Owns a child process: the destructor kills and reaps it.
class Child {
 public:
   // The child runs the body and exits when it returns or throws an exception, which is reported.
   explicit Child( const std::function< void() >& body );
   Child( const Child& ) = delete;
   Child& operator=( const Child& ) = delete;
   ~Child();

   [[nodiscard]] pid_t id() const { return id_; }
   [[nodiscard]] int descriptor() const { return descriptor_.number(); }

   // Waits for the process to end. Returns its exit status, or 128 plus the number of the signal
   // that ended it, as shells do.
   int wait();

 private:
   pid_t id_;
   Descriptor descriptor_;
   std::optional< int > status_;
};

// Blocks SIGINT, SIGTERM, SIGQUIT and SIGHUP, which end the box. Returns a descriptor that becomes
// readable when one of them arrives.
Descriptor blockedSignals();

using Deadline = std::optional< std::chrono::steady_clock::time_point >;

// Waits until one of the descriptors is readable and returns its index, or -1 after the deadline.
// Throws Interrupted if one of the blocked signals arrives or has already arrived.
int await(
   const Descriptor& signals, std::initializer_list< int > descriptors,
   const Deadline& deadline = {} );

} // namespace Box
