#pragma once

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

namespace ostrel {

/// The text of a desktop entry that starts the program at login. A value; what stands in it beside the keys that are
/// set here stays as it is, comments and translations too.
class AutostartEntry
{
public:
    /// As we write it.
    /// @param program an absolute path
    static AutostartEntry forProgram(const QString &program);
    /// @return nothing where it is no desktop entry
    static std::optional<AutostartEntry> parse(const QByteArray &text);

    AutostartEntry(AutostartEntry &&) noexcept;
    AutostartEntry &operator=(AutostartEntry &&) noexcept;
    ~AutostartEntry();

    /// Whether it starts anything: it names a program, and neither the user nor a tool of the desktop has switched it
    /// off.
    bool isOn() const;
    void turn(bool on);
    /// Whether it is what we write, for this program or for another place of it.
    bool isUnchanged() const;
    QByteArray text() const;

private:
    class Keys;

    explicit AutostartEntry(std::unique_ptr<Keys> keys);

    std::unique_ptr<Keys> m_keys;
};

/// A program as the key "Exec" names it: quoted, so that blanks and the shell's characters stand for themselves.
QByteArray execValue(const QString &program);

} // namespace ostrel
