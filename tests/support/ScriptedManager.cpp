// The test's end of the control socket.
#include <support/ScriptedManager.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <sys/socket.h>
#include <unistd.h>

#include <support/ScriptedManagerProcess.h>

namespace Sodrel::Test {

ScriptedManager::ScriptedManager( const PrivateBus& bus, std::vector< Unit > loaded )
   : address( bus.address() ), units( std::move( loaded ) ) {
   start();
}

ScriptedManager::~ScriptedManager() {
   kill();
}

void ScriptedManager::onCall( const std::string& call, const Script& script ) {
   request( { "onCall", call, packed( asWords( script ) ) } );
}

void ScriptedManager::onEveryCall( const std::string& call, const Script& script ) {
   request( { "onEveryCall", call, packed( asWords( script ) ) } );
}

void ScriptedManager::run( const Script& script ) {
   const bool ends = !script.empty() && script.back().kind == Action::Kind::die;
   if( ends ) {
      send( { "run", packed( asWords( script ) ) } );
      awaitEnd();
   } else {
      request( { "run", packed( asWords( script ) ) } );
   }
}

void ScriptedManager::awaitCall( const std::string& call, unsigned count ) {
   request( { "awaitCall", call, asText( count ) } );
}

void ScriptedManager::kill() {
   process.reset();
   if( control >= 0 ) {
      close( control );
      control = -1;
   }
}

void ScriptedManager::awaitEnd() {
   process->wait();
}

void ScriptedManager::start() {
   kill();
   std::array< int, 2 > ends{};
   if( socketpair( AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data() ) != 0 ) {
      throw std::system_error( errno, std::generic_category(), "socketpair" );
   }
   process = std::make_unique< ChildProcess >( [&] {
      // A copy of a descriptor would keep a client's connection open after its end.
      dup2( ends[1], STDIN_FILENO );
      closefrom( STDERR_FILENO + 1 );
      return ScriptedManagerProcess( STDIN_FILENO, address, units ).run();
   } );
   close( ends[1] );
   control = ends[0];
   awaitAcknowledgement();
}

void ScriptedManager::request( const Words& words ) {
   send( words );
   awaitAcknowledgement();
}

void ScriptedManager::send( const Words& words ) {
   const std::string text = packed( words );
   if( ::send( control, text.data(), text.size(), MSG_NOSIGNAL ) < 0 ) {
      throw std::system_error( errno, std::generic_category(), "telling the scripted manager" );
   }
}

void ScriptedManager::awaitAcknowledgement() {
   char acknowledgement = 0;
   ssize_t size = -1;
   do {
      size = recv( control, &acknowledgement, 1, 0 );
   } while( size < 0 && errno == EINTR );
   if( size != 1 ) {
      throw std::runtime_error( "the scripted manager has ended" );
   }
}

} // namespace Sodrel::Test
