#pragma once

#include <QObject>
#include <QString>
#include <QtQmlIntegration>

namespace ostrel {

class Autostart;

/// The switch "Start at login" of the settings screen. It is no part of the settings that are saved: turning it takes
/// effect at once. Main thread.
class AutostartForm : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("part of PopoverModel")

    Q_PROPERTY(bool isOn READ isOn NOTIFY changed)
    /// Why it could not be turned; empty where it could.
    Q_PROPERTY(QString error READ error NOTIFY changed)

public:
    /// The switch outlives this object.
    explicit AutostartForm(Autostart &autostart);

    bool isOn() const { return m_isOn; }
    QString error() const { return m_error; }

    Q_INVOKABLE void turn(bool on);
    /// Looks at it again: the desktop's own settings have the same switch.
    Q_INVOKABLE void refresh();

Q_SIGNALS:
    void changed();

private:
    Autostart &m_autostart;
    bool m_isOn = false;
    QString m_error;
};

} // namespace ostrel
