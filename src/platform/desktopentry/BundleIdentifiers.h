#pragma once

#include <QString>

namespace ostrel {

/// The bundle identifier of an application: its desktop-file id without ".desktop", except for browsers of the
/// Chromium family. Their many packages have many ids, but are one browser to whoever asks it for its tab.
QString bundleIdentifierOf(const QString &desktopFileId);

} // namespace ostrel
