#include "app/doctor/Packages.h"

#include <QList>

namespace ostrel {

namespace {

/// All four families call these packages alike.
QString packageName(Package package)
{
    switch (package) {
    case Package::Accessibility:
        return QStringLiteral("at-spi2-core");
    case Package::Keyring:
        return QStringLiteral("gnome-keyring");
    case Package::Node:
        return QStringLiteral("nodejs");
    case Package::WindowManager:
        return QStringLiteral("openbox");
    }
    return {};
}

/// The identifiers of a system: its own first, then those that it descends from.
QList<QByteArray> identifiers(const QByteArray &osRelease)
{
    QList<QByteArray> own;
    QList<QByteArray> ancestors;
    for (const QByteArray &line : osRelease.split('\n')) {
        const qsizetype equals = line.indexOf('=');
        const QByteArray key = line.left(equals);
        const QByteArray value = line.mid(equals + 1).replace('"', "").replace('\'', "").trimmed();
        if (key == "ID")
            own = {value};
        else if (key == "ID_LIKE")
            ancestors = value.split(' ');
    }
    return own + ancestors;
}

} // namespace

PackageManager packageManagerOf(const QByteArray &osRelease)
{
    for (const QByteArray &system : identifiers(osRelease)) {
        if (system == "debian" || system == "ubuntu")
            return PackageManager::Apt;
        if (system == "fedora" || system == "rhel")
            return PackageManager::Dnf;
        if (system == "arch")
            return PackageManager::Pacman;
        if (system.startsWith("opensuse") || system == "suse")
            return PackageManager::Zypper;
    }
    return PackageManager::Unknown;
}

QString installCommand(PackageManager manager, Package package)
{
    const QString name = packageName(package);
    switch (manager) {
    case PackageManager::Apt:
        return QStringLiteral("sudo apt install ") + name;
    case PackageManager::Dnf:
        return QStringLiteral("sudo dnf install ") + name;
    case PackageManager::Pacman:
        return QStringLiteral("sudo pacman -S ") + name;
    case PackageManager::Zypper:
        return QStringLiteral("sudo zypper install ") + name;
    case PackageManager::Unknown:
        break;
    }
    return QStringLiteral("install the package %1").arg(name);
}

} // namespace ostrel
