// The loop over the bus and the control socket, and the carrying out of scripts.
#include <support/ScriptedManagerProcess.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <support/ScriptedManagerMessages.h>

namespace Sodrel::Test {

namespace {

// Scripts are found by this name: the method's, or "Get" and the property's.
std::string callName( sd_bus_message* call ) {
   std::string name = sd_bus_message_get_member( call );
   if( sd_bus_message_is_method_call( call, propertiesInterface, "Get" ) > 0 ) {
      const char* interface = nullptr;
      const char* property = nullptr;
      if( sd_bus_message_read( call, "ss", &interface, &property ) > 0 ) {
         name += std::string( " " ) + property;
      }
      checked( sd_bus_message_rewind( call, true ), "sd_bus_message_rewind" );
   }
   return name;
}

} // namespace

ScriptedManagerProcess::ScriptedManagerProcess(
   int controlSocket, std::string busAddress, const std::vector< Unit >& units )
   : control( controlSocket ), address( std::move( busAddress ) ), model( units ) {}

int ScriptedManagerProcess::run() {
   connectToBus();
   acknowledge();
   for( ;; ) {
      int processed = 1;
      while( bus != nullptr && processed > 0 ) {
         processed = sd_bus_process( bus.get(), nullptr );
      }
      if( awaited && callCounts[awaited->first] >= awaited->second ) {
         awaited.reset();
         deliver();
         acknowledge();
      }
      if( processed < 0 ) {
         disconnectFromBus();
      }
      std::array sources{
         pollfd{ control, POLLIN, 0 },
         pollfd{ bus ? checked( sd_bus_get_fd( bus.get() ), "sd_bus_get_fd" ) : -1, POLLIN, 0 },
      };
      if( bus ) {
         sources[1].events =
            static_cast< short >( checked( sd_bus_get_events( bus.get() ), "sd_bus_get_events" ) );
      }
      if( poll( sources.data(), sources.size(), -1 ) < 0 && errno != EINTR ) {
         throw std::system_error( errno, std::generic_category(), "poll" );
      }
      if( sources[0].revents != 0 && !serveRequest() ) {
         return 0;
      }
   }
}

int ScriptedManagerProcess::onMessage(
   sd_bus_message* message, void* process, sd_bus_error* ) noexcept {
   uint8_t type = 0;
   checked( sd_bus_message_get_type( message, &type ), "sd_bus_message_get_type" );
   return type == SD_BUS_MESSAGE_METHOD_CALL
             ? static_cast< ScriptedManagerProcess* >( process )->answer( message )
             : 0;
}

// Returns whether there was a script, so that the model has nothing to do.
int ScriptedManagerProcess::answer( sd_bus_message* call ) {
   const std::string name = callName( call );
   ++callCounts[name];
   raiseEvent( name );

   Run run{ MessagePtr( sd_bus_message_ref( call ) ), {}, std::nullopt };
   std::deque< Script >& next = nextScripts[name];
   const auto lasting = lastingScripts.find( name );
   const bool scripted = !next.empty() || lasting != lastingScripts.end();
   if( !next.empty() ) {
      run.rest.assign( next.front().begin(), next.front().end() );
      next.pop_front();
   } else if( scripted ) {
      run.rest.assign( lasting->second.begin(), lasting->second.end() );
   }
   proceed( std::move( run ) );
   return scripted;
}

void ScriptedManagerProcess::proceed( Run run ) {
   while( !run.rest.empty() ) {
      const Action action = std::move( run.rest.front() );
      run.rest.pop_front();
      if( action.kind == Action::Kind::hold ) {
         held.emplace( action.words.at( 0 ), std::move( run ) );
         return;
      }
      perform( action, run );
   }
}

void ScriptedManagerProcess::perform( const Action& action, Run& run ) {
   const Words& words = action.words;
   const auto call = [&] {
      if( !run.call ) {
         throw std::logic_error( "an action that needs a call stands outside a call's script" );
      }
      return run.call.get();
   };
   switch( action.kind ) {
   case Action::Kind::reply:
      return sendReply( call(), words );
   case Action::Kind::error:
      return sendError( call(), words );
   case Action::Kind::signal:
      return sendSignal( action );
   case Action::Kind::unitState:
      return model.changeState( words.at( 0 ), words.at( 1 ) );
   case Action::Kind::foreignJobs:
      return floodWithJobs(
         static_cast< uint32_t >( std::stoul( words.at( 0 ) ) ),
         static_cast< uint32_t >( std::stoul( words.at( 1 ) ) ) );
   case Action::Kind::standard:
      return model.standard( call() );
   case Action::Kind::queueJob:
      run.job = model.queueJob( call() );
      return;
   case Action::Kind::finishJob:
      return model.finishJob( run.job.value(), words.at( 0 ) );
   case Action::Kind::hold:
      throw std::logic_error( "hold is not carried out" );
   case Action::Kind::raise:
      return raiseEvent( words.at( 0 ) );
   case Action::Kind::releaseName:
      checked( sd_bus_release_name( bus.get(), managerName ), "sd_bus_release_name" );
      return;
   case Action::Kind::acquireName:
      checked( sd_bus_request_name( bus.get(), managerName, 0 ), "sd_bus_request_name" );
      return;
   case Action::Kind::disconnect:
      return disconnectFromBus();
   case Action::Kind::connect:
      return connectToBus();
   case Action::Kind::killBus:
      return killDaemon();
   case Action::Kind::die:
      deliver();
      ::kill( getpid(), SIGKILL );
   }
}

void ScriptedManagerProcess::raiseEvent( const std::string& event ) {
   while( auto next = held.extract( event ) ) {
      proceed( std::move( next.mapped() ) );
   }
}

void ScriptedManagerProcess::connectToBus() {
   disconnectFromBus();
   bus = busAt( address );
   checked( sd_bus_add_filter( bus.get(), nullptr, onMessage, this ), "sd_bus_add_filter" );
   model.attach( bus.get() );
   checked( sd_bus_request_name( bus.get(), managerName, 0 ), "sd_bus_request_name" );
}

void ScriptedManagerProcess::disconnectFromBus() {
   model.detach();
   bus.reset();
}

// Returns when the bus has passed on all that was sent, or has ended.
void ScriptedManagerProcess::deliver() {
   if( bus && sd_bus_is_open( bus.get() ) > 0 ) {
      sd_bus_call_method(
         bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
         "GetId", nullptr, nullptr, "" );
   }
}

void ScriptedManagerProcess::killDaemon() {
   deliver();
   // The credentials of the other end are those of the process that listens.
   ucred daemon{};
   socklen_t size = sizeof daemon;
   const int connection = checked( sd_bus_get_fd( bus.get() ), "sd_bus_get_fd" );
   if( getsockopt( connection, SOL_SOCKET, SO_PEERCRED, &daemon, &size ) != 0 ) {
      throw std::system_error( errno, std::generic_category(), "SO_PEERCRED" );
   }
   ::kill( daemon.pid, SIGKILL );
   pollfd hangUp{ connection, 0, 0 };
   poll( &hangUp, 1, -1 );
}

void ScriptedManagerProcess::sendSignal( const Action& action ) {
   if( !action.byStranger ) {
      return emitSignal( bus.get(), action.words );
   }
   deliver();
   const BusPtr stranger = busAt( address );
   checked(
      sd_bus_request_name( stranger.get(), "org.sodrel.test.Stranger", 0 ), "sd_bus_request_name" );
   emitSignal( stranger.get(), action.words );
   roundTrip( stranger.get() );
}

void ScriptedManagerProcess::floodWithJobs( uint32_t first, uint32_t count ) {
   for( uint32_t sent = 0; sent < count; ++sent ) {
      emitSignal( bus.get(), jobRemoved( first + sent, "done" ).words );
      if( sent % 1024 == 0 ) {
         checked( sd_bus_flush( bus.get() ), "sd_bus_flush" );
      }
   }
   deliver();
}

// Returns false if the other end has been closed.
bool ScriptedManagerProcess::serveRequest() {
   const ssize_t size = recv( control, nullptr, 0, MSG_PEEK | MSG_TRUNC );
   if( size <= 0 ) {
      return false;
   }
   std::string text( static_cast< size_t >( size ), '\0' );
   recv( control, text.data(), text.size(), 0 );
   const Words request = unpacked( text );
   const std::string& kind = request.at( 0 );
   const std::string& argument = request.at( 1 );
   if( kind == "onCall" ) {
      nextScripts[argument].push_back( asScript( unpacked( request.at( 2 ) ) ) );
   } else if( kind == "onEveryCall" ) {
      lastingScripts[argument] = asScript( unpacked( request.at( 2 ) ) );
   } else if( kind == "run" ) {
      const Script script = asScript( unpacked( argument ) );
      proceed( { nullptr, { script.begin(), script.end() }, std::nullopt } );
      deliver();
   } else {
      awaited.emplace( argument, std::stoul( request.at( 2 ) ) );
      return true;
   }
   acknowledge();
   return true;
}

void ScriptedManagerProcess::acknowledge() {
   send( control, "", 1, MSG_NOSIGNAL );
}

} // namespace Sodrel::Test
