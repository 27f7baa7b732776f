// Finding, creating and removing the box's control group.
#include "Cgroup.h"

#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>

namespace Box {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = "systemd-box.";

bool isWritableCgroup2( const char* path ) {
   struct statfs status {};
   return statfs( path, &status ) == 0 && status.f_type == CGROUP2_SUPER_MAGIC &&
          ( status.f_flags & ST_RDONLY ) == 0;
}

// Finds the file system of cgroup version 2. Mounting it once more is the last resort, because that
// resets the options of the machine's own mount.
fs::path cgroup2( Descriptor& mount ) {
   for( const char* const path : { "/sys/fs/cgroup", "/sys/fs/cgroup/unified" } ) {
      if( isWritableCgroup2( path ) ) {
         return path;
      }
   }
   const std::string what = "no cgroup version 2";
   const Descriptor context( checked( fsopen( "cgroup2", FSOPEN_CLOEXEC ), what ) );
   checked( fsconfig( context.number(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0 ), what );
   mount = Descriptor( checked( fsmount( context.number(), FSMOUNT_CLOEXEC, 0 ), what ) );
   return mount.path();
}

// Returns the caller's group as named in the caller's cgroup namespace.
std::string ownGroup() {
   std::ifstream groups( "/proc/self/cgroup" );
   for( std::string line; std::getline( groups, line ); ) {
      if( line.starts_with( "0::/" ) ) {
         return line.substr( 4 );
      }
   }
   return {};
}

// Removes a group and all groups below it, except those that contain a process.
void removeTree( const fs::path& group ) {
   std::error_code error;
   for( fs::directory_iterator entry( group, error ); !error && entry != fs::directory_iterator();
        entry.increment( error ) ) {
      if( entry->is_directory( error ) ) {
         removeTree( entry->path() );
      }
   }
   rmdir( group.c_str() );
}

bool writeTo( const fs::path& file, std::string_view text ) {
   const Descriptor descriptor( open( file.c_str(), O_WRONLY | O_CLOEXEC ) );
   return write( descriptor.number(), text.data(), text.size() ) >= 0;
}

} // namespace

Cgroup::Cgroup( pid_t owner ) : parent_( cgroup2( mount_ ) ) {
   std::error_code error;
   const std::string own = ownGroup();
   if( !own.starts_with( ".." ) && fs::is_directory( parent_ / own, error ) ) {
      parent_ /= own;
   }
   path_ = parent_ / ( std::string( prefix ) + std::to_string( owner ) );
}

Cgroup::~Cgroup() {
   if( owned_ ) {
      remove();
   }
}

void Cgroup::create() {
   std::error_code error;
   for( fs::directory_iterator entry( parent_, error ); !error && entry != fs::directory_iterator();
        entry.increment( error ) ) {
      const std::string name = entry->path().filename();
      if( name.starts_with( prefix ) &&
          !fs::exists( "/proc/" + name.substr( prefix.size() ), error ) ) {
         removeTree( entry->path() );
      }
   }
   checked( mkdir( path_.c_str(), 0755 ), "cannot create a cgroup" );
   owned_ = true;
}

void Cgroup::remove() const {
   constexpr int attempts = 50;
   constexpr int milliseconds = 100;
   for( int i = 0; i < attempts && access( path_.c_str(), F_OK ) == 0; ++i ) {
      writeTo( path_ / "cgroup.kill", "1" ); // Linux 5.14 and newer
      // poll reports changes since the last read.
      const Descriptor events( open( ( path_ / "cgroup.events" ).c_str(), O_RDONLY | O_CLOEXEC ) );
      char text[64] = {};
      (void)!read( events.number(), text, sizeof text - 1 );
      if( std::string_view( text ).find( "populated 1" ) != std::string_view::npos ) {
         pollfd changes{ events.number(), POLLPRI, 0 };
         poll( &changes, 1, milliseconds );
      }
      removeTree( path_ );
   }
}

void Cgroup::join( const fs::path& below ) const {
   checked( writeTo( path_ / below / "cgroup.procs", "0" ) ? 0 : -1, "cannot join the cgroup" );
}

} // namespace Box
