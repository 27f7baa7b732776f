// The inside of the box: its /run with the base system, its mounts, and its process 1.
#pragma once

#include "Cgroup.h"
#include "Options.h"
#include "Process.h"

namespace Box {

// Paths below /run that the parts of the box agree on.
inline constexpr const char* logFile = "systemd-box/log";
// A FIFO that receives one line: the outcome of a call to the manager over the bus.
inline constexpr const char* readyFifo = "systemd-box/ready";
inline constexpr const char* readyLine = "success\n";

// What the program and process 1 of the box share.
struct Inside {
   const Options& options;
   const Cgroup& cgroup;
   Descriptor run;    // the tmpfs that becomes /run, not mounted anywhere yet
   Descriptor toInit; // both ends of a socket
   Descriptor toProgram;
};

// The message that process 1 sends when everything is set up.
inline constexpr const char* isSetUp = "set up";

// Creates the box's /run, with the units of a bus and little else.
Inside makeInside( const Options& options, const Cgroup& cgroup );

// Moves the calling process, the first one in its PID namespace, into new namespaces of the other
// kinds, sets up the mounts and executes systemd. If something cannot be set up, sends the reason.
//
// The process dies with its parent: by the parent-death signal, or, if the parent dies before it
// has answered, by the end of the messages.
void becomeInit( Inside& inside );

} // namespace Box
