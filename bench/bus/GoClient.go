// Go's D-Bus client, run and timed like the clients in C.
package main

import (
	"fmt"
	"os"
	"runtime"
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

func call(method string, arguments ...interface{}) *dbus.Call {
	answer := bus.Object(manager, managerPath).Call(managerInterface+"."+method, 0, arguments...)
	check(answer.Err)
	return answer
}

func callForPath(method string, arguments ...interface{}) (path dbus.ObjectPath) {
	check(call(method, arguments...).Store(&path))
	return path
}

func read(path dbus.ObjectPath, property string) {
	_, err := bus.Object(manager, path).GetProperty(property)
	check(err)
}

func readManager() {
	read(managerPath, managerInterface+".SystemState")
}

// Subscribes, calls, and returns once `ended` is true for a signal.
func follow(path dbus.ObjectPath, iface, member string, call func(), ended func(body []interface{}) bool) {
	match := []dbus.MatchOption{
		dbus.WithMatchSender(manager), dbus.WithMatchObjectPath(path),
		dbus.WithMatchInterface(iface), dbus.WithMatchMember(member),
	}
	signals := make(chan *dbus.Signal, 16)
	bus.Signal(signals)
	check(bus.AddMatchSignal(match...))
	call()
	for signal := range signals {
		if signal.Name == iface+"."+member && ended(signal.Body) {
			break
		}
	}
	check(bus.RemoveMatchSignal(match...))
	bus.RemoveSignal(signals)
}

func restart(unit string) {
	var job dbus.ObjectPath
	follow(managerPath, managerInterface, "JobRemoved", func() {
		job = callForPath("RestartUnit", unit, "replace")
	}, func(body []interface{}) bool {
		if body[1] == job && body[3] != "done" {
			check(fmt.Errorf("%s: %s", unit, body[3]))
		}
		return body[1] == job
	})
}

func reloadManager() {
	started := false
	follow(managerPath, managerInterface, "Reloading", func() {
		call("Reload")
	}, func(body []interface{}) bool {
		running := body[0].(bool)
		started = started || running
		return started && !running
	})
}

func reloadUnit(unit string) {
	started := false
	follow(callForPath("GetUnit", unit), propertiesInterface, "PropertiesChanged", func() {
		callForPath("ReloadUnit", unit, "replace")
	}, func(body []interface{}) bool {
		state, found := body[1].(map[string]dbus.Variant)["ActiveState"]
		if body[0] != unitInterface || !found {
			return false
		}
		started = started || state.Value() == "reloading" || state.Value() == "activating"
		return started && state.Value() == "active"
	})
}

func run(operation int, unit string) {
	switch operation {
	case 1:
		readManager()
	case 2:
		read(callForPath("GetUnit", unit), unitInterface+".ActiveState")
	case 3:
		restart(unit)
	case 4:
		reloadManager()
	case 5:
		reloadUnit(unit)
	case 6:
		check(bus.Close())
		open()
		readManager()
	}
}

func processorTime() int64 {
	const clockProcess = 2
	var now syscall.Timespec
	syscall.Syscall(syscall.SYS_CLOCK_GETTIME, clockProcess, uintptr(unsafe.Pointer(&now)), 0)
	return now.Nano()
}

func main() {
	// All clients are pinned to one core.
	runtime.GOMAXPROCS(1)
	open()
	fmt.Println("ready")
	var operation, count int
	var unit string
	for {
		if _, err := fmt.Scan(&operation, &unit, &count); err != nil {
			return
		}
		for ; count > 0; count-- {
			processor, wall := processorTime(), time.Now()
			run(operation, unit)
			fmt.Print(processorTime()-processor, " ", time.Since(wall).Nanoseconds(), " ")
		}
		fmt.Println()
	}
}
