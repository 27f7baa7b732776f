// What lies inside the box: its /run with the base system, its mounts, and its process 1.
#pragma once

#include "Cgroup.h"
#include "Options.h"
#include "Process.h"

namespace Box {

// Paths below /run that the parts of the box agree on.
inline constexpr const char* logFile = "systemd-box/log";
// A FIFO with a line that says how asking for the manager on the bus has ended.
inline constexpr const char* readyFifo = "systemd-box/ready";
inline constexpr const char* readyLine = "success\n";

// What the program and process 1 of the box share.
struct Inside {
   const Options& options;
   const Cgroup& cgroup;
   Descriptor run;    // the tmpfs that becomes /run; it is mounted nowhere yet
   Descriptor toInit; // the ends of a socket
   Descriptor toProgram;
};

// The message that all is set up.
inline constexpr const char* isSetUp = "set up";

// Makes the box's /run, with the units of a bus and little else.
Inside makeInside( const Options& options, const Cgroup& cgroup );

// Gives the calling process, the first of a process namespace, namespaces of the other kinds, sets
// up their mounts and becomes systemd. If something cannot be set up, it sends the reason.
//
// It dies with its parent: by the tie to it, or, before its parent has answered that all is set up,
// by the end of the messages.
void becomeInit( Inside& inside );

} // namespace Box
