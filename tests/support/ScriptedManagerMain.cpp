// Runs a command with its own system bus and scripted manager, for experiments and demos where no
// systemd is available.
#include <cstdio>

#include <unistd.h>

#include <support/ScriptedManager.h>

using namespace SodrelTest;

int main( int argc, char** argv ) {
   if( argc < 2 ) {
      std::fputs(
         "usage: scripted-manager COMMAND [ARGUMENT...]\n"
         "Runs the command with DBUS_SYSTEM_BUS_ADDRESS leading to a manager with these units:\n"
         "  web.service     active, can be reloaded\n"
         "  worker.service  active, cannot be reloaded\n"
         "  simple.service  active, never \"activating\" when it starts\n"
         "  idle.service    inactive\n"
         "  broken.service  inactive, fails to start\n"
         "  crashed.service failed\n"
         "Returns the command's exit status.\n",
         stderr );
      return 2;
   }
   const PrivateBus bus;
   const ScriptedManager manager(
      bus, {
              { .name = "web.service", .activeState = "active" },
              { .name = "worker.service", .activeState = "active", .canReload = false },
              { .name = "simple.service",
                .activeState = "active",
                .canReload = false,
                .announcesStart = false },
              { .name = "idle.service" },
              { .name = "broken.service", .startFails = true },
              { .name = "crashed.service", .activeState = "failed" },
           } );
   ChildProcess command( [&] {
      execvp( argv[1], argv + 1 );
      std::perror( argv[1] );
      return 127;
   } );
   return command.wait();
}
