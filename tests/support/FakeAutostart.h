#pragma once

#include "base/Fault.h"
#include "model/Autostart.h"

#include <QList>

namespace ostrel {

/// An autostart switch that the test turns, too, and that may refuse to be turned.
class FakeAutostart final : public Autostart
{
public:
    bool on = false;
    bool isReadOnly = false;
    QList<bool> turns;

    bool isOn() const override { return on; }
    Result<> turn(bool wanted) override
    {
        turns.append(wanted);
        if (isReadOnly)
            return std::unexpected(faultError(Fault::ReadOnlyFileSystem, QStringLiteral("/home/me/.config")));
        on = wanted;
        return {};
    }
};

} // namespace ostrel
