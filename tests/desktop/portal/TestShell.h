#pragma once

#include "support/PlayedService.h"

#include <QByteArray>
#include <QList>

#include <limits>
#include <mutex>

namespace ostrel {

/// What GNOME's compositor tells of its monitors, played as the test says. Any thread.
class TestShell
{
public:
    /// @param connectors with monitors: "DP-1" has one of that serial number, "DP-1/7" one of the serial number 7
    TestShell(const QByteArray &busAddress, QList<QByteArray> connectors);

    /// Other monitors are there. Returns when the bus has passed on that they have changed.
    void change(const QList<QByteArray> &connectors);
    /// The same, without a word.
    void changeSilently(const QList<QByteArray> &connectors);
    /// One that stays connected shows nothing any more, as that of a closed lid. Without a word.
    void switchOff(const QByteArray &connector);
    /// It is asked, and does not answer.
    void hang();
    /// The same, once it has answered that many more.
    void hangAfter(int answers);
    /// It answers what it is asked from now on.
    void recover();
    /// How often it was asked so far, and has answered.
    int answers() const;

    static constexpr PlayedService::Signal monitorsChanged{.destination = nullptr,
                                                           .path = "/org/gnome/Mutter/DisplayConfig",
                                                           .interface = "org.gnome.Mutter.DisplayConfig",
                                                           .name = "MonitorsChanged"};

private:
    static constexpr int everlasting = std::numeric_limits<int>::max();

    bool handle(GDBusMessage *call);

    mutable std::mutex m_mutex;
    QList<QByteArray> m_connectors;
    QList<QByteArray> m_switchedOff;
    int m_patience = everlasting; ///< how many questions it still answers
    int m_answers = 0;
    PlayedService m_service; ///< the last, for it calls the others
};

} // namespace ostrel
