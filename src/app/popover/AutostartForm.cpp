#include "app/popover/AutostartForm.h"

#include "model/Autostart.h"

namespace ostrel {

AutostartForm::AutostartForm(Autostart &autostart) : m_autostart(autostart) {}

void AutostartForm::turn(bool on)
{
    const auto turned = m_autostart.turn(on);
    m_error = turned ? QString() : turned.error().localizedDescription;
    m_isOn = m_autostart.isOn();
    Q_EMIT changed();
}

void AutostartForm::refresh()
{
    m_error.clear();
    m_isOn = m_autostart.isOn();
    Q_EMIT changed();
}

} // namespace ostrel
