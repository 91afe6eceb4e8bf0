#pragma once

#include "app/RunningApplication.h"

#include <QByteArray>

#include <optional>

namespace ostrel::RecorderInterface {

// Our part of the session bus. The interface's number goes up when a method changes its meaning.
inline constexpr const char *busName = "com.tamsk.ostrel";
inline constexpr const char *objectPath = "/com/tamsk/ostrel";
inline constexpr const char *interfaceName = "com.tamsk.ostrel.Recorder1";
/// (key: s, value: h) to (outcome: s, words: s). The value comes as a file, because whoever watches the bus sees what
/// stands in a message, but not what is in a file.
inline constexpr const char *changeSetting = "ChangeSetting";

/// () to (words: s), empty while nothing is wrong.
inline constexpr const char *complaint = "Complaint";

/// What desktops call to bring a program to the front.
inline constexpr const char *applicationInterface = "org.freedesktop.Application";
/// (platform_data: a{sv})
inline constexpr const char *activate = "Activate";

/// Both interfaces in the bus's own description language.
extern const char *const introspection;

QByteArray outcomeName(SettingAnswer::Outcome outcome);
/// @return nothing for a name that this version does not know
std::optional<SettingAnswer::Outcome> outcomeNamed(const QByteArray &name);

} // namespace ostrel::RecorderInterface
