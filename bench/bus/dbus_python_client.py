#!/usr/bin/python3
"""dbus-python, with GLib's main loop for signals; measured like the clients in C."""
import sys
import time

import dbus
import dbus.mainloop.glib
from gi.repository import GLib

MANAGER = "org.freedesktop.systemd1"
MANAGER_PATH = "/org/freedesktop/systemd1"
MANAGER_INTERFACE = "org.freedesktop.systemd1.Manager"
UNIT_INTERFACE = "org.freedesktop.systemd1.Unit"
PROPERTIES_INTERFACE = "org.freedesktop.DBus.Properties"
TARGET, ONESHOT, SERVICE = "bench-nothing.target", "bench-oneshot.service", "bench-runs.service"


class Client:
    def __init__(self):
        self.bus = None

    def open(self):
        self.bus = dbus.SystemBus(private=True, mainloop=dbus.mainloop.glib.DBusGMainLoop())

    def close(self):
        if self.bus:
            self.bus.close()
        self.bus = None

    def interface(self, path, interface):
        # Introspection would be a further round trip.
        return dbus.Interface(self.bus.get_object(MANAGER, path, introspect=False), interface)

    def manager(self):
        return self.interface(MANAGER_PATH, MANAGER_INTERFACE)

    def read(self, path, interface, name):
        return str(self.interface(path, PROPERTIES_INTERFACE).Get(interface, name))

    def read_manager(self):
        self.read(MANAGER_PATH, MANAGER_INTERFACE, "SystemState")

    def read_unit(self):
        self.read(self.manager().GetUnit(SERVICE), UNIT_INTERFACE, "ActiveState")

    def follow(self, path, interface, member, on_signal, call):
        """Calls, and runs the main loop until on_signal says that the awaited has come."""
        loop = GLib.MainLoop()

        def receive(*arguments):
            if on_signal(*arguments):
                loop.quit()

        match = self.bus.add_signal_receiver(receive, member, interface, MANAGER, path)
        call()
        loop.run()
        match.remove()

    def follow_job(self, method, unit):
        job = None

        def on_signal(_, path, __, result):
            assert path != job or result == "done"
            return path == job

        def call():
            nonlocal job
            job = self.manager().get_dbus_method(method)(unit, "replace")

        self.follow(MANAGER_PATH, MANAGER_INTERFACE, "JobRemoved", on_signal, call)

    def follow_daemon_reload(self):
        seen = []

        def on_signal(active):
            seen.append(bool(active))
            return seen[-2:] == [True, False]

        self.follow(MANAGER_PATH, MANAGER_INTERFACE, "Reloading", on_signal, self.manager().Reload)

    def follow_unit_reload(self):
        started = False

        def on_signal(interface, changed, _):
            nonlocal started
            state = changed.get("ActiveState") if interface == UNIT_INTERFACE else None
            started = started or state in ("reloading", "activating")
            return started and state == "active"

        path = self.manager().GetUnit(SERVICE)
        self.follow(path, PROPERTIES_INTERFACE, "PropertiesChanged", on_signal,
                    lambda: self.manager().ReloadUnit(SERVICE, "replace"))

    def read_once(self):
        self.open()
        self.read_manager()
        self.close()


def main():
    client = Client()

    def start():
        client.follow_job("StartUnit", TARGET)

    def stop():
        client.follow_job("StopUnit", TARGET)

    operations = {
        "1": (None, client.read_manager),
        "2": (None, client.read_unit),
        "3a": (stop, start),
        "3b": (None, lambda: client.follow_job("StartUnit", ONESHOT)),
        "3c": (None, lambda: client.follow_job("RestartUnit", SERVICE)),
        "3d": (start, stop),
        "4": (None, client.follow_daemon_reload),
        "5": (None, client.follow_unit_reload),
        "6": (client.close, client.read_once),
        "7": (None, start),
    }
    client.open()
    print("ready", flush=True)
    for line in sys.stdin:
        name, count = line.split()
        prepare, run = operations[name]
        for _ in range(int(count)):
            if prepare:
                prepare()
            processor, wall = time.process_time_ns(), time.monotonic_ns()
            run()
            print(time.process_time_ns() - processor, time.monotonic_ns() - wall, end=" ")
        if name == "6":
            client.open()
        print(flush=True)


main()
