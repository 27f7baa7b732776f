#!/usr/bin/python3
"""dbus-python, with GLib's main loop for signals; run and timed like the clients in C."""
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


class Client:
    def __init__(self):
        self.bus = dbus.SystemBus(private=True, mainloop=dbus.mainloop.glib.DBusGMainLoop())

    def interface(self, path, interface):
        # Introspection would cost a further round trip.
        return dbus.Interface(self.bus.get_object(MANAGER, path, introspect=False), interface)

    def manager(self):
        return self.interface(MANAGER_PATH, MANAGER_INTERFACE)

    def read(self, path, interface, name):
        return str(self.interface(path, PROPERTIES_INTERFACE).Get(interface, name))

    def read_manager(self, _):
        self.read(MANAGER_PATH, MANAGER_INTERFACE, "SystemState")

    def read_unit(self, unit):
        self.read(self.manager().GetUnit(unit), UNIT_INTERFACE, "ActiveState")

    def follow(self, path, interface, member, call, ended):
        """Subscribes, calls, and runs the main loop until `ended` is true for a signal."""
        loop = GLib.MainLoop()

        def receive(*arguments):
            if ended(*arguments):
                loop.quit()

        match = self.bus.add_signal_receiver(receive, member, interface, MANAGER, path)
        call()
        loop.run()
        match.remove()

    def restart(self, unit):
        job = None

        def call():
            nonlocal job
            job = self.manager().RestartUnit(unit, "replace")

        def ended(_, path, __, result):
            assert path != job or result == "done"
            return path == job

        self.follow(MANAGER_PATH, MANAGER_INTERFACE, "JobRemoved", call, ended)

    def reload_manager(self, _):
        seen = []

        def ended(running):
            seen.append(bool(running))
            return seen[-2:] == [True, False]

        self.follow(MANAGER_PATH, MANAGER_INTERFACE, "Reloading", self.manager().Reload, ended)

    def reload_unit(self, unit):
        started = False

        def ended(interface, changed, _):
            nonlocal started
            state = changed.get("ActiveState") if interface == UNIT_INTERFACE else None
            started = started or state in ("reloading", "activating")
            return started and state == "active"

        self.follow(self.manager().GetUnit(unit), PROPERTIES_INTERFACE, "PropertiesChanged",
                    lambda: self.manager().ReloadUnit(unit, "replace"), ended)

    def renew(self, unit):
        self.bus.close()
        self.__init__()
        self.read_manager(unit)


def main():
    client = Client()
    operations = {"1": client.read_manager, "2": client.read_unit, "3": client.restart,
                  "4": client.reload_manager, "5": client.reload_unit, "6": client.renew}
    print("ready", flush=True)
    for line in sys.stdin:
        operation, unit, count = line.split()
        for _ in range(int(count)):
            processor, wall = time.process_time_ns(), time.monotonic_ns()
            operations[operation](unit)
            print(time.process_time_ns() - processor, time.monotonic_ns() - wall, end=" ")
        print(flush=True)


main()
