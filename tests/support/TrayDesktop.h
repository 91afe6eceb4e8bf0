#pragma once

#include "support/TestKeyring.h"
#include "support/VirtualDesktop.h"

#include <QList>
#include <QProcessEnvironment>
#include <QRect>

#include <memory>
#include <optional>
#include <sys/types.h>

class QImage;

namespace ostrel {

/// A desktop as people have it: a window manager, a message bus with an unlocked keyring, the accessibility bus (its
/// switch off) and a panel that shows the tray. This process belongs to it. Main thread.
class TrayDesktop
{
public:
    enum class Host {
        XEmbed,             ///< a tray by itself in the screen's top right corner, which embeds windows
        StatusNotifierItem, ///< a desktop's panel in the top left corner, which draws what it is told on the bus
    };

    /// Where an embedding tray is.
    struct Place {
        QString edge = QStringLiteral("top");
        int fromTheEnd = 0; ///< pixels between it and the edge's right or lower end
    };

    explicit TrayDesktop(Host host = Host::XEmbed);

    VirtualDesktop &desktop() { return m_desktop; }
    TestKeyring &keyring() { return m_keyring; }
    /// The program that shows the tray.
    TestProcess &host() { return *m_host; }
    /// What programs run with: the desktop's, told to show their trees also while the switch is off.
    QProcessEnvironment environment() const;

    void startHost() { startHost({}); }
    void startHost(const Place &place);
    void endHost() { m_host.reset(); }
    /// Lets the tray hang with what it shows, and go on with what has come meanwhile.
    void freezeHost();
    void thawHost();

    /// Waits until the tray shows something. @return its place on the screen
    QRect waitForIcon();
    /// The icon's place now; nothing while the tray is empty.
    std::optional<QRect> icon();
    /// Whether there is red in the icon's top right quarter.
    bool iconHasRecordingDot();

private:
    void configurePanel() const;
    bool isHostThere();
    /// The tray's program and those that draw parts of it.
    QList<pid_t> hostProcesses() const;
    QImage picture(const QRect &place);

    const Host m_kind;
    VirtualDesktop m_desktop{{.windowManager = true}};
    TestKeyring m_keyring{m_desktop.environment()};
    std::unique_ptr<TestProcess> m_host;
};

} // namespace ostrel
