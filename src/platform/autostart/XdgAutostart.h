#pragma once

#include "model/Autostart.h"

#include <QString>

#include <functional>

namespace ostrel {

/// The user's autostart folder, which every desktop reads at login:
/// `$XDG_CONFIG_HOME/autostart/com.tamsk.ostrel.desktop`. A file that the user has changed is kept, and only its switch
/// is turned.
class XdgAutostart final : public Autostart
{
public:
    /// @param program says where the program is that is to be started, an absolute path
    explicit XdgAutostart(std::function<QString()> program);

    bool isOn() const override;
    Result<> turn(bool on) override;

private:
    Result<> turnOn();
    Result<> turnOff();

    const std::function<QString()> m_program;
    const QString m_path;
};

} // namespace ostrel
