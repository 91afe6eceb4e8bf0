#include "platform/autostart/XdgAutostart.h"

#include "base/Fault.h"
#include "base/Files.h"
#include "platform/autostart/AutostartEntry.h"

#include <QFile>
#include <QStandardPaths>

#include <cerrno>
#include <unistd.h>

namespace ostrel {

namespace {

/// What the file says; nothing where there is none that a desktop would take.
std::optional<AutostartEntry> readEntry(const QString &path)
{
    const auto text = readFile(path);
    return text ? AutostartEntry::parse(*text) : std::nullopt;
}

} // namespace

XdgAutostart::XdgAutostart(std::function<QString()> program)
    : m_program(std::move(program)), m_path(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                            QLatin1String("/autostart/com.tamsk.ostrel.desktop"))
{}

bool XdgAutostart::isOn() const
{
    const auto entry = readEntry(m_path);
    return entry && entry->isOn();
}

Result<> XdgAutostart::turn(bool on)
{
    return on ? turnOn() : turnOff();
}

Result<> XdgAutostart::turnOn()
{
    auto entry = readEntry(m_path);
    if (entry)
        entry->turn(true);
    else if (QFile::exists(m_path))
        if (const auto kept = keepDamagedFile(m_path); !kept)
            return std::unexpected(kept.error());
    // One of ours may name a place where the program is no longer.
    if (!entry || !entry->isOn() || entry->isUnchanged())
        entry = AutostartEntry::forProgram(m_program());
    return writeFileAtomically(m_path, entry->text());
}

Result<> XdgAutostart::turnOff()
{
    auto entry = readEntry(m_path);
    if (!entry || !entry->isOn())
        return {};
    if (!entry->isUnchanged()) {
        entry->turn(false);
        return writeFileAtomically(m_path, entry->text());
    }
    if (::unlink(QFile::encodeName(m_path).constData()) != 0 && errno != ENOENT)
        return std::unexpected(fileError(errno, m_path));
    return {};
}

} // namespace ostrel
