// A forked process that never outlives its parent.
#pragma once

#include <functional>
#include <sys/types.h>

namespace Sodrel::Test {

// Runs a body in a process of its own; the body's result is the exit status.
//
// Owns the process: the destructor kills and reaps it, and the kernel kills it when the parent
// dies.
// Thread: the parent has only one.
class ChildProcess {
 public:
   explicit ChildProcess( const std::function< int() >& body );
   ChildProcess( const ChildProcess& ) = delete;
   ChildProcess& operator=( const ChildProcess& ) = delete;
   ~ChildProcess();

   pid_t pid() const { return process; }

   // Sends SIGKILL and waits until the process is gone; nothing if it has been waited for.
   void kill();

   // Waits for the end. Returns the exit status, or 128 and the number of the signal that ended
   // the process, as shells do.
   int wait();

 private:
   pid_t process;
   bool reaped = false;
   int status = 0;
};

} // namespace Sodrel::Test
