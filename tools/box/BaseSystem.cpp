// The files of the box's /run.
#include "Inside.h"

#include <fstream>

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace Box {

namespace {

struct File {
   const char* path;
   const char* text;
};

constexpr const char* placeholder = R"([Unit]
Description=Exists because systemd asks for it by name
DefaultDependencies=no
)";

constexpr File files[] = {
   { "systemd/system.conf.d/box.conf", R"([Manager]
LogTarget=kmsg
LogColor=no
ShowStatus=no
DefaultStandardOutput=null
DefaultStandardError=null
DefaultTimeoutStopSec=5s
)" },
   { "systemd-box/units/sysinit.target", placeholder },
   { "systemd-box/units/basic.target", placeholder },
   { "systemd-box/units/shutdown.target", placeholder },
   { "systemd-box/units/default.target", R"([Unit]
Description=Box is up
Wants=dbus.service box-ready.service
)" },
   { "systemd-box/units/exit.target", R"([Unit]
Description=Box exits
DefaultDependencies=no
Requires=systemd-exit.service
After=systemd-exit.service
)" },
   // Without a process, because the exit status of a process would become the box's.
   { "systemd-box/units/systemd-exit.service", R"([Unit]
Description=Exit the box
DefaultDependencies=no
SuccessAction=exit-force
)" },
   { "systemd-box/units/dbus.socket", R"([Unit]
Description=System bus socket

[Socket]
ListenStream=/run/dbus/system_bus_socket
)" },
   { "systemd-box/units/dbus.service", R"([Unit]
Description=System bus
Requires=dbus.socket

[Service]
Type=notify
NotifyAccess=main
ExecStart=/usr/bin/dbus-daemon --system --address=systemd: --nofork --nopidfile --systemd-activation --syslog-only
ExecReload=/usr/bin/dbus-send --print-reply --system --type=method_call --dest=org.freedesktop.DBus / org.freedesktop.DBus.ReloadConfig
)" },
   // The bus delivers the call once the manager has joined it. The type is simple, so no job is
   // left when the reply arrives. The action is for a shell that is killed.
   { "systemd-box/units/box-ready.service", R"([Unit]
Description=Report that the box is up
DefaultDependencies=no
After=default.target
FailureAction=exit-force

[Service]
ExecStart=/usr/bin/dbus-send --system --print-reply --dest=org.freedesktop.systemd1 / org.freedesktop.DBus.Peer.Ping
ExecStopPost=/bin/sh -c 'echo "$SERVICE_RESULT" >/run/systemd-box/ready'
)" },
   { logFile, "" },
};

} // namespace

Inside makeInside( const Options& options, const Cgroup& cgroup ) {
   Inside inside{ options, cgroup, {}, {}, {} };
   const Descriptor context( checked( fsopen( "tmpfs", FSOPEN_CLOEXEC ), "tmpfs" ) );
   const auto configure = [&]( unsigned command, const char* key, const char* value ) {
      checked( fsconfig( context.number(), command, key, value, 0 ), "tmpfs" );
   };
   configure( FSCONFIG_SET_STRING, "source", "systemd-box" );
   configure( FSCONFIG_SET_STRING, "mode", "755" );
   configure( FSCONFIG_CMD_CREATE, nullptr, nullptr );
   inside.run = Descriptor( checked( fsmount( context.number(), FSMOUNT_CLOEXEC, 0 ), "tmpfs" ) );

   // Older buses do not notify systemd of their readiness.
   const std::string machinesBus = contentsOf( options.root / "lib/systemd/system/dbus.service" );
   const std::string type = "Type=notify";
   const bool older = !machinesBus.empty() && machinesBus.find( type ) == std::string::npos;
   const std::filesystem::path run = inside.run.path();
   for( const File& file : files ) {
      std::filesystem::create_directories( ( run / file.path ).parent_path() );
      std::string text = file.text;
      if( const std::size_t at = text.find( type ); older && at != std::string::npos ) {
         text.replace( at, type.size(), "Type=simple" );
      }
      std::ofstream stream( run / file.path );
      stream << text << std::flush;
      checked( stream ? 0 : -1, file.path );
   }
   checked( mkfifo( ( run / readyFifo ).c_str(), 0600 ), readyFifo );

   int ends[2] = {};
   checked( socketpair( AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends ), "socketpair" );
   inside.toInit = Descriptor( ends[0] );
   inside.toProgram = Descriptor( ends[1] );
   return inside;
}

} // namespace Box
