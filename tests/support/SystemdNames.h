// systemd's names on the bus.
#pragma once

namespace SodrelTest {

inline constexpr const char* systemdName = "org.freedesktop.systemd1";
inline constexpr const char* managerPath = "/org/freedesktop/systemd1";
inline constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
inline constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";
inline constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
inline constexpr const char* failedError = "org.freedesktop.DBus.Error.Failed";

// A job and a unit.
inline constexpr const char* jobPath = "/org/freedesktop/systemd1/job/42";
inline constexpr const char* fooPath = "/org/freedesktop/systemd1/unit/foo_2eservice";

} // namespace SodrelTest
