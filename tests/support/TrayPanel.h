#pragma once

#include "support/TrayPanelBus.h"

#include <QList>
#include <QRect>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

namespace ostrel {

class VirtualDesktop;

/// What a running program shows, as an assistive program is told of it over the accessibility bus, and worked with a
/// real mouse and keyboard. The desktop is entered, and its accessibility bus runs. What doesn't come in time ends the
/// test, with all that was there instead. Main thread.
class TrayPanel
{
public:
    /// A control or a text that can be seen.
    struct Part {
        TrayPanelBus::Object object;
        QString role; ///< by the bus's own name for it: "button"
        QString name;
        QString description;
        QRect place;        ///< pixels of the screen
        quint64 states = 0; ///< a bit each

        bool isFocused() const;
        bool isFocusable() const;
        bool isEnabled() const;
        bool isChecked() const;
    };

    TrayPanel(VirtualDesktop &desktop, qint64 processIdentifier);

    /// Everything that its windows show now, in the order of the tree. Empty while none is shown.
    QList<Part> parts();
    /// Each as "role: name".
    QStringList names();
    /// Where the panel is on the screen; empty while it is not shown.
    QRect window();
    bool shows(const QString &name) { return find(name).has_value(); }
    bool shows(const char *name) { return shows(QString::fromUtf8(name)); }
    std::optional<Part> find(const QString &name, const QString &role = {});
    /// Waits until something has the name. An asterisk at its beginning or end leaves that open.
    Part waitFor(const QString &name, const QString &role = {}, std::chrono::milliseconds patience = defaultPatience);
    Part waitFor(const char *name) { return waitFor(QString::fromUtf8(name)); }
    void waitUntilGone(const QString &name);
    void waitUntilGone(const char *name) { waitUntilGone(QString::fromUtf8(name)); }

    /// Clicks the button, check box or row of that name with the mouse, once it is there, can be operated and stands
    /// still; what lies further down the page is brought up by the wheel.
    void press(const char *name) { press(QString::fromUtf8(name)); }
    void press(const QString &name);
    /// Clicks into a field, replaces what stands in it, and waits until the field says so.
    void fill(const QString &name, const QString &text);
    void fill(const char *name, const QString &text) { fill(QString::fromUtf8(name), text); }
    /// The same for a field that doesn't say what is typed into it, and is empty.
    void fillSecret(const QString &name, const QString &text);
    /// What is written in a text field.
    QString textOf(const Part &part);

    static constexpr std::chrono::milliseconds defaultPatience{30'000};

private:
    QList<TrayPanelBus::Object> visibleObjects();
    std::vector<quint64> statesOf(const QList<TrayPanelBus::Object> &objects);
    QRect placeOnceStill(const TrayPanelBus::Object &object);
    void clickInto(const Part &field);
    QRect broughtIntoView(const Part &part);
    void waitUntilHolds(const QString &what, std::chrono::milliseconds patience, const std::function<bool()> &holds);

    VirtualDesktop &m_desktop;
    const qint64 m_processIdentifier;
    TrayPanelBus m_bus;
    QByteArray m_program; ///< its name on the bus, once known
};

} // namespace ostrel
