// Runs a shell command as a transient service, follows it to its end, and returns its exit status.
//
//    run-transient COMMAND
#include <Sodrel/SignalMonitor.h>
#include <Sodrel/Sodrel.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

constexpr const char* manager = "org.freedesktop.systemd1";

// A service whose unit systemd keeps loaded while the connection lasts. All calls use the same
// connection: an operation of Sdbus could replace it. If the bus dies, the next call fails.
class TransientService {
 public:
   explicit TransientService( Sodrel::Sdbus& sdbus ) : systemd_( sdbus ), bus_( sdbus.sdbus() ) {
      char* encoded = nullptr;
      int result = sd_bus_path_encode( "/org/freedesktop/systemd1/unit", name_.c_str(), &encoded );
      systemd_.handleSdbusCall( result, nullptr, "sd_bus_path_encode" );
      path_ = encoded;
      std::free( encoded );
      // The signals only have to wake sd_bus_wait; their contents are read as properties.
      const auto ignore = []( sd_bus_message*, void*, sd_bus_error* ) { return 0; };
      result = sd_bus_match_signal(
         bus_, nullptr, manager, path_.c_str(), "org.freedesktop.DBus.Properties",
         "PropertiesChanged", ignore, nullptr );
      systemd_.handleSdbusCall( result, nullptr, "sd_bus_match_signal" );
   }

   void start( const char* command ) const {
      // Before the call, so that the end of the job cannot be missed.
      const auto monitor = Sodrel::jobRemovedMonitorFactory( bus_ );
      sd_bus_message* call = nullptr;
      int result = sd_bus_message_new_method_call(
         bus_, &call, manager, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager",
         "StartTransientUnit" );
      systemd_.handleSdbusCall( result, nullptr, "sd_bus_message_new_method_call" );
      // If one of these fails, so does the call.
      sd_bus_message_append( call, "ss", name_.c_str(), "fail" );
      sd_bus_message_open_container( call, 'a', "(sv)" );
      // Without the flag, systemd would expand the command's variables before the shell does.
      sd_bus_message_append(
         call, "(sv)", "ExecStartEx", "a(sasas)", 1, "/bin/sh", 3, "sh", "-c", command, 1,
         "no-env-expand" );
      sd_bus_message_append( call, "(sv)", "StandardOutputFileDescriptor", "h", STDOUT_FILENO );
      sd_bus_message_append( call, "(sv)", "StandardErrorFileDescriptor", "h", STDERR_FILENO );
      // Keeps the unit until the connection ends, and sends this client its signals even if no
      // client has subscribed. Afterwards nothing is left, even if the command has failed.
      sd_bus_message_append( call, "(sv)", "AddRef", "b", 1 );
      sd_bus_message_append( call, "(sv)", "CollectMode", "s", "inactive-or-failed" );
      sd_bus_message_close_container( call );
      sd_bus_message_append( call, "a(sa(sv))", 0 );

      sd_bus_error error{};
      sd_bus_message* reply = nullptr;
      result = sd_bus_call( bus_, call, 0, &error, &reply );
      sd_bus_message_unref( call );
      systemd_.handleSdbusCall( result, &error, "StartTransientUnit" );
      monitor->wait( systemd_.handleSdbusMessageO( reply, "StartTransientUnit" ) );
   }

   // Waits until the command has ended, and returns its exit status as a shell does.
   int exitStatus() const {
      while( isActive() ) {
         // Returns at once if a signal has arrived with a reply.
         const int result = sd_bus_wait( bus_, UINT64_MAX );
         systemd_.handleSdbusCall( result, nullptr, "sd_bus_wait" );
         while( sd_bus_process( bus_, nullptr ) > 0 ) {
         }
      }
      const std::int32_t status = number( "ExecMainStatus" );
      return number( "ExecMainCode" ) == CLD_EXITED ? status : 128 + status;
   }

 private:
   bool isActive() const {
      sd_bus_error error{};
      char* text = nullptr;
      const int result = sd_bus_get_property_string(
         bus_, manager, path_.c_str(), "org.freedesktop.systemd1.Unit", "ActiveState", &error,
         &text );
      systemd_.handleSdbusCall( result, &error, "ActiveState" );
      const std::string state = text;
      std::free( text );
      return state != "inactive" && state != "failed";
   }

   std::int32_t number( const char* property ) const {
      sd_bus_error error{};
      std::int32_t value = 0;
      const int result = sd_bus_get_property_trivial(
         bus_, manager, path_.c_str(), "org.freedesktop.systemd1.Service", property, &error, 'i',
         &value );
      systemd_.handleSdbusCall( result, &error, property );
      return value;
   }

   const Sodrel::Sdbus& systemd_;
   sd_bus* bus_;
   std::string name_ = "run-" + std::to_string( getpid() ) + ".service";
   std::string path_;
};

} // namespace

int main( int argc, char** argv ) {
   if( argc != 2 ) {
      std::fprintf( stderr, "usage: %s COMMAND\n", argv[0] );
      return 2;
   }
   try {
      const auto systemd = Sodrel::sdbusFactory();
      const TransientService service( *systemd );
      service.start( argv[1] );
      return service.exitStatus();
   } catch( const Sodrel::Exception& error ) {
      std::fprintf( stderr, "%s\n", error.what() );
      return 1;
   }
}
