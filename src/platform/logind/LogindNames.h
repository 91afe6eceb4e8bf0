#pragma once

/// What logind is called by, on the system bus.
namespace ostrel::LogindNames {

constexpr const char *service = "org.freedesktop.login1";
constexpr const char *path = "/org/freedesktop/login1";
constexpr const char *manager = "org.freedesktop.login1.Manager";
constexpr const char *session = "org.freedesktop.login1.Session";
/// Stands for the session of whoever asks, or of their user where they belong to none. Signals name the real path.
constexpr const char *ownSessionPath = "/org/freedesktop/login1/session/auto";

} // namespace ostrel::LogindNames
