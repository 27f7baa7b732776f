// The box's control group: a child of the caller's own, named after the program that owns it.
#pragma once

#include "Process.h"

#include <filesystem>

namespace Box {

// Owns the group from `create` on: the destructor removes it.
class Cgroup {
 public:
   // Finds the place of the group. Throws std::system_error if this machine has no cgroup
   // version 2.
   explicit Cgroup( pid_t owner );
   Cgroup( const Cgroup& ) = delete;
   Cgroup& operator=( const Cgroup& ) = delete;
   ~Cgroup();

   // Makes the group, and removes those of boxes that were killed with all of their processes.
   void create();

   // Kills what is left in the group, waits until it is gone and removes the group. Does nothing if
   // there is none.
   void remove() const;

   // Moves the calling process into the group, or into a group below it.
   void join( const std::filesystem::path& below = {} ) const;

 private:
   Descriptor mount_; // of a file system that is mounted nowhere, if the machine shows none
   std::filesystem::path parent_;
   std::filesystem::path path_;
   bool owned_ = false;
};

} // namespace Box
