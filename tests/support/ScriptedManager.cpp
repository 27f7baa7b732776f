// The manager's thread, and the choice of a script.
#include <support/ScriptedManager.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <support/SystemdNames.h>

namespace SodrelTest {

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

ScriptedManager::ScriptedManager( const PrivateBus& bus, std::vector< Unit > loaded )
   : address_( bus.address() ),
     units_( std::move( loaded ) ),
     wakeUp_( checked( eventfd( 0, EFD_CLOEXEC ), "eventfd" ) ),
     thread_( [this] { serve(); } ) {
   start();
}

ScriptedManager::~ScriptedManager() {
   inItsThread( [this] { ended_ = true; } ).get();
   thread_.join();
   close( wakeUp_ );
}

void ScriptedManager::onCall( const std::string& call, const Script& script ) {
   inItsThread( [&] { nextScripts_[call].push_back( script ); } ).get();
}

void ScriptedManager::onEveryCall( const std::string& call, const Script& script ) {
   inItsThread( [&] { lastingScripts_[call] = script; } ).get();
}

void ScriptedManager::run( const Script& script ) {
   inItsThread( [&] {
      perform( script, nullptr );
      model_->deliver();
   } ).get();
}

void ScriptedManager::runSoon( const Script& script ) {
   // Exceptions end the process, because no caller waits for the outcome.
   inItsThread( [this, script]() noexcept { perform( script, nullptr ); } );
}

void ScriptedManager::start() {
   inItsThread( [this] {
      nextScripts_.clear();
      lastingScripts_.clear();
      if( model_ ) {
         model_->disconnect();
      }
      model_.emplace( address_, units_, onMessage, this );
      model_->connect();
   } ).get();
}

int ScriptedManager::onMessage( sd_bus_message* message, void* manager, sd_bus_error* ) noexcept {
   uint8_t type = 0;
   checked( sd_bus_message_get_type( message, &type ), "sd_bus_message_get_type" );
   return type == SD_BUS_MESSAGE_METHOD_CALL &&
          static_cast< ScriptedManager* >( manager )->answer( message );
}

// Returns whether there was a script; if so, the model does nothing.
bool ScriptedManager::answer( sd_bus_message* call ) {
   const std::string name = callName( call );
   std::deque< Script >& next = nextScripts_[name];
   if( !next.empty() ) {
      const Script script = std::move( next.front() );
      next.pop_front();
      perform( script, call );
      return true;
   }
   const auto lasting = lastingScripts_.find( name );
   if( lasting != lastingScripts_.end() ) {
      perform( lasting->second, call );
      return true;
   }
   return false;
}

void ScriptedManager::perform( const Script& script, sd_bus_message* call ) {
   Turn turn{ *model_, model_->bus(), call };
   for( const Action& action : script ) {
      action.act( turn );
   }
}

std::future< void > ScriptedManager::inItsThread( std::function< void() > task ) {
   std::packaged_task< void() > packaged( std::move( task ) );
   std::future< void > done = packaged.get_future();
   {
      const std::lock_guard lock( tasksMutex_ );
      tasks_.push_back( std::move( packaged ) );
   }
   checked( eventfd_write( wakeUp_, 1 ), "eventfd_write" );
   return done;
}

void ScriptedManager::serve() {
   // POSIX signals are left to the test's thread.
   sigset_t all;
   sigfillset( &all );
   pthread_sigmask( SIG_BLOCK, &all, nullptr );
   while( !ended_ ) {
      std::array sources{ pollfd{ wakeUp_, POLLIN, 0 }, pollfd{ -1, 0, 0 } };
      if( model_ ) {
         sources[1] = model_->process();
      }
      if( poll( sources.data(), sources.size(), -1 ) < 0 ) {
         throw std::system_error( errno, std::generic_category(), "poll" );
      }
      if( sources[0].revents != 0 ) {
         eventfd_t posted = 0;
         eventfd_read( wakeUp_, &posted );
         std::deque< std::packaged_task< void() > > tasks;
         {
            const std::lock_guard lock( tasksMutex_ );
            tasks.swap( tasks_ );
         }
         for( std::packaged_task< void() >& task : tasks ) {
            task();
         }
      }
   }
}

} // namespace SodrelTest
