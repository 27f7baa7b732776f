// Starting a dbus-daemon with a configuration in memory, and knowing when it listens.
#include <support/PrivateBus.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <unistd.h>

namespace Sodrel::Test {

namespace {

constexpr const char* systemBusVariable = "DBUS_SYSTEM_BUS_ADDRESS";

// The limits leave room for floods of signals.
std::string configuration( const std::string& address ) {
   return R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>)" +
          address + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
)";
}

std::string freshAddress() {
   unsigned long long number = 0;
   if( getrandom( &number, sizeof number, 0 ) != sizeof number ) {
      throw std::system_error( errno, std::generic_category(), "getrandom" );
   }
   return "unix:abstract=sodrel-test-" + std::to_string( number );
}

int runDaemon( const std::string& address, int readyPipe ) {
   const int file = memfd_create( "dbus-daemon configuration", 0 );
   const int ready = dup( readyPipe );
   const std::string text = configuration( address );
   if( write( file, text.data(), text.size() ) < 0 ) {
      return 1;
   }
   const std::string fileOption = "--config-file=/proc/self/fd/" + std::to_string( file );
   const std::string readyOption = "--print-address=" + std::to_string( ready );
   execlp(
      "dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--syslog-only", fileOption.c_str(),
      readyOption.c_str(), nullptr );
   return 127;
}

} // namespace

PrivateBus::PrivateBus() : busAddress( freshAddress() ) {
   const char* before = std::getenv( systemBusVariable );
   hadAddressBefore = before != nullptr;
   addressBefore = hadAddressBefore ? before : "";
   start();
   setenv( systemBusVariable, busAddress.c_str(), 1 );
}

PrivateBus::~PrivateBus() {
   if( hadAddressBefore ) {
      setenv( systemBusVariable, addressBefore.c_str(), 1 );
   } else {
      unsetenv( systemBusVariable );
   }
}

void PrivateBus::kill() {
   daemon.reset();
}

void PrivateBus::start() {
   kill();
   std::array< int, 2 > ready{};
   if( pipe2( ready.data(), O_CLOEXEC ) != 0 ) {
      throw std::system_error( errno, std::generic_category(), "pipe2" );
   }
   daemon = std::make_unique< ChildProcess >( [&] { return runDaemon( busAddress, ready[1] ); } );
   close( ready[1] );
   // The daemon prints its address once it listens; the end of the pipe means that it has ended.
   char firstByte = 0;
   const ssize_t got = read( ready[0], &firstByte, 1 );
   close( ready[0] );
   if( got != 1 ) {
      throw std::runtime_error(
         "dbus-daemon ended with status " + std::to_string( daemon->wait() ) );
   }
}

} // namespace Sodrel::Test
