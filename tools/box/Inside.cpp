// The namespaces and mounts in which systemd runs as process 1.
#include "Inside.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Box {

namespace {

namespace fs = std::filesystem;

constexpr const char* source = "systemd-box";

// Targets without a leading slash are below the root of the box, which is the working directory.
void mountOn(
   const fs::path& target, const char* type, unsigned long flags = 0, const char* data = nullptr ) {
   checked( mount( source, target.c_str(), type, flags, data ), "mount " + target.string() );
}

void bindMount( const fs::path& from, const fs::path& target, unsigned long flags = 0 ) {
   checked(
      mount( from.c_str(), target.c_str(), nullptr, MS_BIND | flags, nullptr ),
      "mount " + target.string() );
}

void makeReadOnly( const fs::path& target ) {
   checked(
      mount( nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr ),
      "mount " + target.string() );
}

Descriptor openedFolder( const fs::path& path ) {
   return opened( path, O_PATH | O_DIRECTORY );
}

void enter( const Descriptor& directory ) {
   checked( fchdir( directory.number() ), "chdir" );
}

// Returns the nearest folder from the working directory upwards that contains a repository, or else
// the working directory.
fs::path projectDirectory( const fs::path& working ) {
   std::error_code error;
   for( fs::path candidate = working; candidate.has_relative_path();
        candidate = candidate.parent_path() ) {
      if( fs::exists( candidate / ".git", error ) ) {
         return candidate;
      }
   }
   return working;
}

// Mounts an overlay on a directory and returns its root. All changes go to the box's /run. The
// lower directory is given as ".", because some characters of a path are special to overlays.
Descriptor overlay( const Descriptor& directory ) {
   const fs::path changes = "/run/systemd-box/changes";
   const fs::path work = "/run/systemd-box/work";
   fs::create_directory( changes );
   fs::create_directory( work );
   enter( directory );
   const Descriptor context( checked( fsopen( "overlay", FSOPEN_CLOEXEC ), "overlay" ) );
   const auto set = [&]( const char* key, const fs::path& value ) {
      checked(
         fsconfig( context.number(), FSCONFIG_SET_STRING, key, value.c_str(), 0 ), "overlay" );
   };
   set( "source", source );
   set( "lowerdir", "." );
   set( "upperdir", changes );
   set( "workdir", work );
   checked( fsconfig( context.number(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0 ), "overlay" );
   Descriptor top( checked( fsmount( context.number(), FSMOUNT_CLOEXEC, 0 ), "overlay" ) );
   checked(
      move_mount(
         top.number(), "", directory.number(), "",
         MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_EMPTY_PATH ),
      "overlay" );
   return top;
}

// Makes the box's root the working directory. Neither the machine's /etc nor the directory given by
// --root is modified.
void prepareRoot(
   const Options& options, const Descriptor& root, const fs::path& project,
   const Descriptor& openedProject ) {
   if( options.root == "/" ) {
      overlay( openedFolder( "/etc" ) );
      enter( openedFolder( "/" ) );
      bindMount( "/dev", "dev", MS_REC );
      return;
   }
   enter( overlay( root ) );
   bindMount( "/dev", "dev", MS_REC );
   bindMount( "/run", "run", MS_REC );
   mountOn( "tmp", "tmpfs", 0, "mode=1777" );
   if( project.has_relative_path() ) {
      fs::create_directories( project.relative_path() );
      bindMount( openedProject.path(), project.relative_path(), MS_REC );
   }
}

// Hides or write-protects the machine's parts of the kernel's interfaces.
void prepareInterfaces() {
   mountOn( "proc", "proc" );
   bindMount( "proc/sys", "proc/sys" );
   bindMount( "/sys", "sys" );
   for( const char* const folderOfKernel : { "proc/sys", "sys", "dev" } ) {
      makeReadOnly( folderOfKernel );
   }
   mountOn( "sys/fs/cgroup", "cgroup2" );
   std::error_code error;
   if( fs::exists( "dev/shm", error ) ) {
      mountOn( "dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777" );
   }
   if( fs::exists( "dev/mqueue", error ) ) {
      mountOn( "dev/mqueue", "mqueue" );
   }
   if( fs::exists( "dev/kmsg", error ) ) {
      bindMount( fs::path( "/run" ) / logFile, "dev/kmsg" );
   }
   if( fs::exists( "dev/console", error ) ) {
      bindMount( "/dev/null", "dev/console" );
   }
}

// Returns systemd's search path of units.
std::string setUp( const Inside& inside ) {
   const Options& options = inside.options;
   inside.cgroup.join();
   checked(
      unshare( CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWCGROUP ),
      "cannot create namespaces" );
   checked( mount( nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr ), "private mounts" );

   // Some of these may be in the /run that is about to be hidden.
   const Descriptor root = openedFolder( options.root );
   const fs::path project = projectDirectory( options.workingDirectory );
   const Descriptor openedProject = openedFolder( project );
   std::vector< Descriptor > unitFolders;
   for( const fs::path& units : options.units ) {
      unitFolders.push_back( openedFolder( units ) );
   }
   checked(
      move_mount( inside.run.number(), "", AT_FDCWD, "/run", MOVE_MOUNT_F_EMPTY_PATH ),
      "mount /run" );
   std::string unitPath;
   for( std::size_t i = 0; i < unitFolders.size(); ++i ) {
      const fs::path place = "/run/systemd-box/units." + std::to_string( i );
      fs::create_directory( place );
      bindMount( unitFolders[i].path(), place );
      unitPath += place.string() + ':';
   }
   const fs::path log = fs::path( "/run" ) / logFile;
   standardStreamsAre( opened( "/dev/null", O_RDWR ), opened( log, O_WRONLY | O_APPEND ) );

   prepareRoot( options, root, project, openedProject );
   prepareInterfaces();
   if( options.root != "/" ) {
      // Unlike after chroot, the kernel still allows user namespaces.
      checked( static_cast< int >( syscall( SYS_pivot_root, ".", "." ) ), "pivot_root" );
      checked( umount2( ".", MNT_DETACH ), "pivot_root" );
   }
   return unitPath + "/run/systemd-box/units";
}

void sendTo( const Descriptor& socket, const std::string& text ) {
   send( socket.number(), text.data(), text.size(), MSG_NOSIGNAL );
}

[[noreturn]] void becomeSystemd( const Options& options, const std::string& unitPath ) {
   clearenv();
   addToEnvironment( {
      "container=systemd-box",
      "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
      "LANG=C.UTF-8",
      "SYSTEMD_UNIT_PATH=" + unitPath,
      "SYSTEMD_GENERATOR_PATH=/run/systemd/system-generators",
      "SYSTEMD_ENVIRONMENT_GENERATOR_PATH=/run/systemd/system-environment-generators",
   } );
   addToEnvironment( options.environment );
   close_range( STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC );
   execl( "/lib/systemd/systemd", "/lib/systemd/systemd", "--system", nullptr );
   throw std::system_error( errno, std::generic_category(), "/lib/systemd/systemd" );
}

} // namespace

void becomeInit( Inside& inside ) {
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   inside.toInit.reset(); // so that the socket is closed when the parent has died
   std::string unitPath;
   try {
      unitPath = setUp( inside );
   } catch( const std::exception& error ) {
      sendTo( inside.toProgram, error.what() );
      return;
   }
   sendTo( inside.toProgram, isSetUp );
   char answer = 0;
   // A parent that answers was still alive after prctl, so its death will be noticed.
   if( recv( inside.toProgram.number(), &answer, sizeof answer, 0 ) > 0 ) {
      becomeSystemd( inside.options, unitPath );
   }
}

} // namespace Box
