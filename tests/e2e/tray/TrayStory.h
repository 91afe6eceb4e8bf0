#pragma once

#include "OstrelProgram.h"
#include "support/Printers.h"
#include "support/TrayDesktop.h"
#include "support/TrayPanel.h"

#include "base/Files.h"

#include <QDate>
#include <QDir>

#include <gmock/gmock.h>

#include <optional>

namespace ostrel {

/// The tray application on a desktop of its own, with its real observer, as somebody uses it who has a mouse and a
/// keyboard. What it says at its end, and how, is checked.
class TrayStory : public testing::Test
{
protected:
    explicit TrayStory(TrayDesktop::Host host = TrayDesktop::Host::XEmbed) : m_tray(host)
    {
        // The journal has a line after seconds.
        m_ostrel.writeSettings("\"chunkSizeMs\": 2000, \"frameFps\": 2");
        m_ostrel.environment().insert(QStringLiteral("LSAN_OPTIONS"),
                                      QStringLiteral("suppressions=" OSTREL_TOOLKIT_LEAKS ":print_suppressions=0"));
    }

    /// The user's consent to window titles, which the desktop keeps.
    void allowAccessibility()
    {
        m_tray.desktop().run(QStringLiteral("dbus-send"),
                             {QStringLiteral("--session"), QStringLiteral("--dest=org.a11y.Bus"),
                              QStringLiteral("--print-reply"), QStringLiteral("/org/a11y/bus"),
                              QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                              QStringLiteral("string:org.a11y.Status"), QStringLiteral("string:IsEnabled"),
                              QStringLiteral("variant:boolean:true")});
    }
    /// Starts it and waits for its icon.
    void start()
    {
        m_ostrel.start({});
        m_icon = m_tray.waitForIcon();
        m_panel.emplace(m_tray.desktop(), m_ostrel.processId());
    }
    /// Starts it and opens its panel by a click on the icon.
    TrayPanel &open()
    {
        if (!m_panel)
            start();
        clickIcon();
        m_panel->waitFor("Tamsk Ostrel");
        return *m_panel;
    }
    /// Never twice in a row on the same spot: that would be a double click, which is one click to the program.
    void clickIcon()
    {
        m_clicksLeft = !m_clicksLeft;
        const int aside = m_icon.width() / 3;
        m_tray.desktop().click(m_icon.center() + QPoint(m_clicksLeft ? -aside : aside, 0));
    }
    TrayPanel &panel() { return *m_panel; }
    void key(const char *keys) { m_tray.desktop().key(QString::fromUtf8(keys)); }
    bool isPanelShown() { return !m_panel->window().isEmpty(); }
    void waitUntilPanelIsClosed()
    {
        waitUntil(QStringLiteral("the panel to close"), patience, [this] { return !isPanelShown(); });
    }

    /// It is ending because its user wanted that, in whatever way.
    void expectItEnds()
    {
        const auto outcome = m_ostrel.waitForEnd();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.messages, QByteArray()) << "nothing is said in a terminal that nobody looks at";
        m_ostrel.expectNoObserverStays();
        m_panel.reset();
    }
    void end()
    {
        m_ostrel.terminate();
        expectItEnds();
    }

    void writeJournal(const QDate &day, const QByteArray &lines)
    {
        const QString file = m_ostrel.path(QStringLiteral("ostrel/journal/%1.md").arg(day.toString(Qt::ISODate)));
        ASSERT_TRUE(QDir().mkpath(QFileInfo(file).path()));
        ASSERT_TRUE(writeFileAtomically(file, "## Session one\nstart_time: " + day.toString(Qt::ISODate).toUtf8() +
                                                  "T09:00:00+00:00\n\n" + lines)
                        .has_value());
    }
    QByteArray settingsFile() const
    {
        return readFile(m_ostrel.path(QStringLiteral(".ostrel/settings.json"))).value_or(QByteArray());
    }

    static constexpr std::chrono::milliseconds patience{30'000};

    TrayDesktop m_tray;
    OstrelProgram m_ostrel{m_tray.environment()};
    QRect m_icon;
    bool m_clicksLeft = false;
    std::optional<TrayPanel> m_panel;
};

} // namespace ostrel
