// The box's control group: a child of the caller's group, named after the program that owns it.
#pragma once

#include "Process.h"

#include <filesystem>

namespace Box {

// Owns the group from `create` on: the destructor removes it.
class Cgroup {
 public:
   // Determines the group's path. Throws std::system_error if this machine has no cgroup version 2.
   explicit Cgroup( pid_t owner );
   Cgroup( const Cgroup& ) = delete;
   Cgroup& operator=( const Cgroup& ) = delete;
   ~Cgroup();

   // Creates the group, and removes groups left by boxes that were killed together with their
   // sweeper.
   void create();

   // Kills the processes left in the group, waits until they are gone and removes the group. Does
   // nothing if the group does not exist.
   void remove() const;

   // Moves the calling process into the group, or into a group below it.
   void join( const std::filesystem::path& below = {} ) const;

 private:
   Descriptor mount_; // a detached mount, if the machine has none
   std::filesystem::path parent_;
   std::filesystem::path path_;
   bool owned_ = false;
};

} // namespace Box
