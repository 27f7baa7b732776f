// Starting a dbus-daemon with a configuration in memory, and knowing when it listens.
#include <support/PrivateBus.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace SodrelTest {

namespace {

constexpr const char* systemBusVariable = "DBUS_SYSTEM_BUS_ADDRESS";

std::string
configuration( const std::string& address, const std::map< std::string, unsigned >& limits ) {
   std::string text = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>)" + address +
                      R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
)";
   for( const auto& [name, value] : limits ) {
      text += "  <limit name=\"" + name + "\">" + std::to_string( value ) + "</limit>\n";
   }
   return text + "</busconfig>\n";
}

int orThrow( int result, const char* what ) {
   if( result < 0 ) {
      throw std::system_error( errno, std::generic_category(), what );
   }
   return result;
}

} // namespace

PrivateBus::PrivateBus()
   : address_( "unix:abstract=sodrel-test-" + std::to_string( std::random_device()() ) ) {
   start();
   setenv( systemBusVariable, address_.c_str(), 1 );
}

PrivateBus::~PrivateBus() {
   unsetenv( systemBusVariable );
}

void PrivateBus::kill() {
   daemon_.reset();
}

void PrivateBus::start() {
   kill();
   // The child must not allocate: another thread may be in the middle of that.
   const int file = orThrow( memfd_create( "dbus-daemon configuration", 0 ), "memfd_create" );
   const std::string text = configuration( address_, limits_ );
   orThrow( static_cast< int >( write( file, text.data(), text.size() ) ), "write" );
   std::array< int, 2 > ready{};
   orThrow( pipe( ready.data() ), "pipe" );
   fcntl( ready[0], F_SETFD, FD_CLOEXEC );
   const std::string fileOption = "--config-file=/proc/self/fd/" + std::to_string( file );
   const std::string readyOption = "--print-address=" + std::to_string( ready[1] );
   daemon_ = std::make_unique< ChildProcess >( [&] {
      execlp(
         "dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--syslog-only",
         fileOption.c_str(), readyOption.c_str(), nullptr );
      return 127;
   } );
   close( ready[1] );
   close( file );
   // The daemon prints its address once it listens. The end of the pipe means that it has exited.
   char firstByte = 0;
   const ssize_t got = read( ready[0], &firstByte, 1 );
   close( ready[0] );
   if( got != 1 ) {
      throw std::runtime_error(
         "dbus-daemon ended with status " + std::to_string( daemon_->wait() ) );
   }
}

} // namespace SodrelTest
