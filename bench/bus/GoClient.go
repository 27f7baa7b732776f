// Go's D-Bus client, measured like the clients in C.
package main

import (
	"bufio"
	"fmt"
	"os"
	"runtime"
	"strconv"
	"strings"
	"syscall"
	"time"
	"unsafe"

	"github.com/godbus/dbus"
)

const (
	manager             = "org.freedesktop.systemd1"
	managerPath         = "/org/freedesktop/systemd1"
	managerInterface    = "org.freedesktop.systemd1.Manager"
	unitInterface       = "org.freedesktop.systemd1.Unit"
	propertiesInterface = "org.freedesktop.DBus.Properties"

	target  = "bench-nothing.target"
	oneshot = "bench-oneshot.service"
	service = "bench-runs.service"
)

var bus *dbus.Conn

func check(err error) {
	if err != nil {
		fmt.Fprintln(os.Stderr, err)
		os.Exit(1)
	}
}

func open() {
	var err error
	bus, err = dbus.ConnectSystemBus()
	check(err)
}

func closeBus() {
	check(bus.Close())
}

func object(path dbus.ObjectPath) dbus.BusObject {
	return bus.Object(manager, path)
}

func read(path dbus.ObjectPath, property string) {
	_, err := object(path).GetProperty(property)
	check(err)
}

func readManager() {
	read(managerPath, managerInterface+".SystemState")
}

func unitPath() (path dbus.ObjectPath) {
	check(object(managerPath).Call(managerInterface+".GetUnit", 0, service).Store(&path))
	return path
}

func readUnit() {
	read(unitPath(), unitInterface+".ActiveState")
}

// Subscribes, calls, and returns when the signal that is awaited has come.
func follow(path dbus.ObjectPath, iface, member string, call func(), ended func(*dbus.Signal) bool) {
	match := []dbus.MatchOption{
		dbus.WithMatchSender(manager), dbus.WithMatchObjectPath(path),
		dbus.WithMatchInterface(iface), dbus.WithMatchMember(member),
	}
	signals := make(chan *dbus.Signal, 16)
	bus.Signal(signals)
	check(bus.AddMatchSignal(match...))
	call()
	for signal := range signals {
		if signal.Name == iface+"."+member && ended(signal) {
			break
		}
	}
	check(bus.RemoveMatchSignal(match...))
	bus.RemoveSignal(signals)
}

func followJob(method, unit string) {
	var job dbus.ObjectPath
	follow(managerPath, managerInterface, "JobRemoved", func() {
		check(object(managerPath).Call(managerInterface+"."+method, 0, unit, "replace").Store(&job))
	}, func(signal *dbus.Signal) bool {
		if signal.Body[1] != job {
			return false
		}
		if signal.Body[3] != "done" {
			check(fmt.Errorf("%s: %s", unit, signal.Body[3]))
		}
		return true
	})
}

func followDaemonReload() {
	started := false
	follow(managerPath, managerInterface, "Reloading", func() {
		check(object(managerPath).Call(managerInterface+".Reload", 0).Err)
	}, func(signal *dbus.Signal) bool {
		active := signal.Body[0].(bool)
		started = started || active
		return started && !active
	})
}

func followUnitReload() {
	started := false
	follow(unitPath(), propertiesInterface, "PropertiesChanged", func() {
		check(object(managerPath).Call(managerInterface+".ReloadUnit", 0, service, "replace").Err)
	}, func(signal *dbus.Signal) bool {
		state, found := signal.Body[1].(map[string]dbus.Variant)["ActiveState"]
		if signal.Body[0] != unitInterface || !found {
			return false
		}
		started = started || state.Value() == "reloading" || state.Value() == "activating"
		return started && state.Value() == "active"
	})
}

func readOnce() {
	open()
	readManager()
	closeBus()
}

func processorTime() int64 {
	const clockProcess = 2
	var now syscall.Timespec
	syscall.Syscall(syscall.SYS_CLOCK_GETTIME, clockProcess, uintptr(unsafe.Pointer(&now)), 0)
	return now.Nano()
}

func nothing() {}

func main() {
	start := func() { followJob("StartUnit", target) }
	stop := func() { followJob("StopUnit", target) }
	operations := map[string]struct{ prepare, run func() }{
		"1":  {nothing, readManager},
		"2":  {nothing, readUnit},
		"3a": {stop, start},
		"3b": {nothing, func() { followJob("StartUnit", oneshot) }},
		"3c": {nothing, func() { followJob("RestartUnit", service) }},
		"3d": {start, stop},
		"4":  {nothing, followDaemonReload},
		"5":  {nothing, followUnitReload},
		"6":  {closeBus, readOnce},
		"7":  {nothing, start},
	}
	// All clients are pinned to one core.
	runtime.GOMAXPROCS(1)
	open()
	fmt.Println("ready")
	for lines := bufio.NewScanner(os.Stdin); lines.Scan(); {
		name, number, _ := strings.Cut(lines.Text(), " ")
		count, err := strconv.Atoi(number)
		check(err)
		operation := operations[name]
		for ; count > 0; count-- {
			operation.prepare()
			processor, wall := processorTime(), time.Now()
			operation.run()
			fmt.Print(processorTime()-processor, " ", time.Since(wall).Nanoseconds(), " ")
		}
		if name == "6" {
			open()
		}
		fmt.Println()
	}
}
