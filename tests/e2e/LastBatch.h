#pragma once

#include "OstrelProgram.h"

#include "base/Files.h"

#include <QList>

#include <gtest/gtest.h>

#include <csignal>

namespace ostrel {

/// A program that takes ten pictures a second on a display server of its own, and makes a batch of them every minute:
/// what was recorded is handed over at the end, or never.
class LastBatch : public testing::Test
{
protected:
    LastBatch()
    {
        m_ostrel.writeSettings(QByteArray("\"frameFps\": 10, \"chunkSizeMs\": 60000, ") + OstrelProgram::keepAnalysed);
        m_ostrel.tellOfCapture();
    }
    void TearDown() override
    {
        for (const qint64 process : m_frozenObservers)
            ::kill(pid_t(process), SIGCONT);
        m_ostrel.expectNoObserverStays();
    }

    /// Has the tray's program record once it starts, without anybody who presses a button.
    void recordFromTheStart() const
    {
        ASSERT_TRUE(writeFileAtomically(m_ostrel.path(QStringLiteral(".ostrel/resume-recording")), {}));
    }
    void freezeObserver()
    {
        m_frozenObservers = m_ostrel.observers();
        ASSERT_FALSE(m_frozenObservers.isEmpty());
        for (const qint64 process : m_frozenObservers)
            ::kill(pid_t(process), SIGSTOP);
    }

    VirtualDesktop m_desktop{{.size = {640, 480}}};
    OstrelProgram m_ostrel{m_desktop.environment()};

private:
    QList<qint64> m_frozenObservers;
};

} // namespace ostrel
