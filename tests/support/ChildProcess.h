// A forked process that never outlives its parent.
#pragma once

#include <functional>
#include <sys/types.h>

namespace SodrelTest {

// Runs a body in a child process; the body's result is the exit status.
//
// Owns the process: the destructor kills and reaps it, and the kernel kills it when the thread that
// created it ends, at the latest with the parent.
// Thread: the child has only the calling thread.
class ChildProcess {
 public:
   explicit ChildProcess( const std::function< int() >& body );
   ChildProcess( const ChildProcess& ) = delete;
   ChildProcess& operator=( const ChildProcess& ) = delete;
   ~ChildProcess();

   pid_t pid() const { return process_; }

   // Waits for the process to end. Returns its exit status, or 128 plus the number of the signal
   // that ended it, as shells do.
   int wait();

 private:
   pid_t process_;
   bool reaped_ = false;
   int status_ = 0;
};

} // namespace SodrelTest
