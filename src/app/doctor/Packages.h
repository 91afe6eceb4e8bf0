#pragma once

#include <QByteArray>
#include <QString>

namespace ostrel {

/// The tool that installs software on this system.
enum class PackageManager { Unknown, Apt, Dnf, Pacman, Zypper };

/// @param osRelease the content of /etc/os-release
PackageManager packageManagerOf(const QByteArray &osRelease);

/// What the product uses and a system may lack.
enum class Package { Accessibility, Keyring, Node, WindowManager };

/// The command that installs it, or a plain request where the tool is not known.
QString installCommand(PackageManager manager, Package package);

} // namespace ostrel
