#pragma once

/// What the message bus itself, and every service on it, is called by.
namespace ostrel::BusNames {

constexpr const char *daemon = "org.freedesktop.DBus"; ///< name and interface
constexpr const char *daemonPath = "/org/freedesktop/DBus";
constexpr const char *properties = "org.freedesktop.DBus.Properties";

} // namespace ostrel::BusNames
