// A bystander on the bus, who tells when the manager or the bus is gone.
#pragma once

#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>

#include <sys/socket.h>
#include <sys/wait.h>

#include <support/BusPointers.h>
#include <support/PrivateBus.h>
#include <support/ScriptedManagerActions.h>

namespace Sodrel::Test {

class BusWitness {
 public:
   explicit BusWitness( const PrivateBus& watched ) : bus( busAt( watched.address() ) ) {
      ucred peer{};
      socklen_t size = sizeof peer;
      const int connection = checked( sd_bus_get_fd( bus.get() ), "sd_bus_get_fd" );
      if( getsockopt( connection, SOL_SOCKET, SO_PEERCRED, &peer, &size ) != 0 ) {
         throw std::system_error( errno, std::generic_category(), "daemon of the bus" );
      }
      daemon = static_cast< id_t >( peer.pid );
      checked(
         sd_bus_match_signal(
            bus.get(), nullptr, "org.freedesktop.DBus", nullptr, nullptr, "NameOwnerChanged",
            onNameOwnerChanged, &nameIsGone ),
         "NameOwnerChanged" );
   }
   BusWitness( const BusWitness& ) = delete;
   BusWitness& operator=( const BusWitness& ) = delete;

   // Waits until the daemon's process, a child of this one, has ended, and with it all of its
   // connections.
   void awaitEndOfBus() const {
      siginfo_t ended;
      // It remains for the one who owns it.
      while( waitid( P_PID, daemon, &ended, WEXITED | WNOWAIT ) < 0 ) {
         checked( errno == EINTR ? 0 : -errno, "waitid" );
      }
   }

   // Waits until the bus knows that nobody owns the manager's name.
   void awaitLossOfName() {
      while( !nameIsGone ) {
         if( checked( sd_bus_process( bus.get(), nullptr ), "sd_bus_process" ) == 0 ) {
            checked( sd_bus_wait( bus.get(), UINT64_MAX ), "sd_bus_wait" );
         }
      }
   }

   // Calls a method of the manager without waiting for the reply.
   void call( const char* method ) {
      checked(
         sd_bus_call_method_async(
            bus.get(), nullptr, managerName, managerPath, managerInterface, method, nullptr,
            nullptr, "" ),
         method );
      checked( sd_bus_flush( bus.get() ), "sd_bus_flush" );
   }

 private:
   static int onNameOwnerChanged( sd_bus_message* signal, void* gone, sd_bus_error* ) noexcept {
      const char* name = nullptr;
      const char* before = nullptr;
      const char* after = nullptr;
      checked( sd_bus_message_read( signal, "sss", &name, &before, &after ), "NameOwnerChanged" );
      if( std::string( name ) == managerName ) {
         *static_cast< bool* >( gone ) = std::string( after ).empty();
      }
      return 0;
   }

   BusPtr bus;
   id_t daemon = 0;
   bool nameIsGone = false;
};

} // namespace Sodrel::Test
