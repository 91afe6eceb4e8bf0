#pragma once

#include <QString>
#include <optional>

namespace ostrel {

/// What one .desktop file says of an application.
struct DesktopEntryFile {
    QString name; ///< in the user's language
    QString startupWmClass;
    /// The program's file name, where the entry starts nothing but that program in a window of its own.
    QString program;
    bool hidden = false;  ///< as good as not there; hides entries of the same id in later folders
    bool visible = false; ///< shown in menus
};

/// Absent where the file can't be read or describes no application. The language is that of the environment
/// (LANGUAGE, LC_ALL, LC_MESSAGES, LANG).
std::optional<DesktopEntryFile> readDesktopEntryFile(const QString &path);

} // namespace ostrel
