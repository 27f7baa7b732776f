// A forked process that never outlives its parent.
#pragma once

#include <functional>
#include <sys/types.h>

namespace SodrelTest {

// Runs a body in a process of its own; the body's result is the exit status.
//
// Owns the process: the destructor kills and reaps it, and the kernel kills it when the thread that
// made it ends, at the latest with the parent.
// Thread: the child has the calling thread alone.
class ChildProcess {
 public:
   explicit ChildProcess( const std::function< int() >& body );
   ChildProcess( const ChildProcess& ) = delete;
   ChildProcess& operator=( const ChildProcess& ) = delete;
   ~ChildProcess();

   pid_t pid() const { return process_; }

   // Waits for the end. Returns the exit status, or 128 and the number of the signal that ended
   // the process, as shells do.
   int wait();

 private:
   pid_t process_;
   bool reaped_ = false;
   int status_ = 0;
};

} // namespace SodrelTest
