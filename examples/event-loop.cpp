// Drives systemd from an event loop: calls block a separate thread, and outcomes are events.
// There is no descriptor to poll: an operation that has returned has nothing left to do.
//
//    event-loop UNIT...     restarts the units in turn; SIGINT gives up the current wait
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

namespace {

// Restarts units on its own thread; the loop's thread uses the public members.
class Restarter {
 public:
   explicit Restarter( std::vector< std::string > units )
      : thread_( [this, units = std::move( units )] { run( units ); } ) {}
   Restarter( const Restarter& ) = delete;
   Restarter& operator=( const Restarter& ) = delete;
   ~Restarter() {
      thread_.join();
      close( connection_ );
      close( eventFd_ );
   }

   // Readable while there are outcomes to take.
   int eventFd() const { return eventFd_; }

   // The last outcome is empty.
   std::vector< std::string > takeOutcomes() {
      const std::lock_guard lock( mutex_ );
      eventfd_t number = 0;
      eventfd_read( eventFd_, &number );
      return std::exchange( outcomes_, {} );
   }

   // Makes the current wait fail, if there is one. Its job continues in systemd.
   void giveUp() {
      const std::lock_guard lock( mutex_ );
      shutdown( connection_, SHUT_RDWR );
   }

 private:
   void run( const std::vector< std::string >& units ) {
      try {
         const auto systemd = Sodrel::sdbusFactory();
         for( const std::string& unit : units ) {
            outcomeIs( unit + ' ' + restart( *systemd, unit ) );
         }
      } catch( const std::exception& error ) {
         outcomeIs( error.what() );
      }
      outcomeIs( "" );
   }

   std::string restart( Sodrel::Sdbus& systemd, const std::string& unit ) {
      try {
         // A new connection if the last wait on the old one was given up.
         sd_bus* const bus = systemd.sdbus();
         connectionIs( fcntl( sd_bus_get_fd( bus ), F_DUPFD_CLOEXEC, 0 ) );
         // The wait is on this very connection, so giving up works from here on. "managerCallSsO"
         // would renew a connection that was shut down before the call, and wait on the new one.
         const auto monitor = Sodrel::jobRemovedMonitorFactory( bus );
         monitor->wait( systemd.asyncManagerCallSsO( "RestartUnit", unit.c_str(), "replace" ) );
         return "restarted";
      } catch( const std::exception& error ) {
         return error.what();
      }
   }

   // A separate descriptor for the loop: the worker may close the connection's at any time.
   void connectionIs( int fd ) {
      const std::lock_guard lock( mutex_ );
      close( std::exchange( connection_, fd ) );
   }

   void outcomeIs( std::string outcome ) {
      const std::lock_guard lock( mutex_ );
      outcomes_.push_back( std::move( outcome ) );
      eventfd_write( eventFd_, 1 );
   }

   const int eventFd_ = eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK );
   std::mutex mutex_;
   std::vector< std::string > outcomes_;
   int connection_ = -1;
   std::thread thread_;
};

int onOutcomes( sd_event_source* source, int /*fd*/, uint32_t /*events*/, void* restarter ) {
   for( const std::string& outcome : static_cast< Restarter* >( restarter )->takeOutcomes() ) {
      if( outcome.empty() ) {
         return sd_event_exit( sd_event_source_get_event( source ), 0 );
      }
      std::puts( outcome.c_str() );
   }
   return 0;
}

int onInterrupt( sd_event_source* /*source*/, const signalfd_siginfo* /*info*/, void* restarter ) {
   static_cast< Restarter* >( restarter )->giveUp();
   return 0;
}

} // namespace

int main( int argc, char** argv ) {
   // Blocked before the second thread starts: the loop gets the signal, and no call is interrupted.
   sigset_t interrupt;
   sigemptyset( &interrupt );
   sigaddset( &interrupt, SIGINT );
   pthread_sigmask( SIG_BLOCK, &interrupt, nullptr );

   Restarter restarter( { argv + 1, argv + argc } );
   sd_event* loop = nullptr;
   sd_event_default( &loop );
   sd_event_add_io( loop, nullptr, restarter.eventFd(), EPOLLIN, onOutcomes, &restarter );
   sd_event_add_signal( loop, nullptr, SIGINT, onInterrupt, &restarter );
   const int status = sd_event_loop( loop );
   sd_event_unref( loop );
   return status;
}
