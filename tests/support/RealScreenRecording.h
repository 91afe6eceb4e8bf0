#pragma once

#include "base/SerialQueue.h"
#include "base/TaskScope.h"
#include "capture/ScreenCaptureRecorder.h"
#include "context/ActiveApplicationContext.h"
#include "observer/LocalObserverAPI.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeAccessibilityTree.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/FakeForegroundSource.h"
#include "support/FakeHttpTransport.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

namespace ostrel {

/// The real recorder, of two pictures a second, for displays that are real too; its time passes by hand. The fixture
/// that derives from it has the displays: it makes the recorder, and lets go of it before them.
class RealScreenRecording : public testing::Test
{
protected:
    /// @param settle is called between two steps of the clock
    explicit RealScreenRecording(std::function<void()> settle) : m_clock(std::move(settle))
    {
        m_accessibility.onIsTrusted = [] { return false; };
        m_foreground.onMouseLocation = [] { return std::nullopt; };
        m_foreground.onFrontmostApplication = [] { return std::nullopt; };
        m_settings.frameFps = 2;
        m_settings.chunkSizeMs = 3'600'000;
    }

    void makeRecorder(DisplaySource &displays)
    {
        m_recorder.emplace(
            ScreenCaptureRecorder::Dependencies{m_clock, displays, m_context, m_samples, m_contexts, 0, {}});
        m_recorder->onStreamsDied = [this](const QString &message) { m_deaths.append(message); };
    }

    /// One of the recorder's counters as it is now.
    qint64 counterNow(const QString &label) const
    {
        return m_recorder->diagnosticSummary().section(label + u'=', 1).section(u' ', 0, 0).toLongLong();
    }

    SerialQueue m_samples{QStringLiteral("samples")};
    SerialQueue m_contexts{QStringLiteral("context")};
    SerialQueue m_apiWorker{QStringLiteral("api")};
    ManualClock m_clock;
    FakeForegroundSource m_foreground;
    FakeAccessibilityAccess m_accessibility;
    FakeAccessibilityTree m_tree;
    FakeBrowserScriptRunner m_browserScripts;
    ActiveApplicationContext m_context{{.foreground = m_foreground,
                                        .accessibility = m_accessibility,
                                        .tree = m_tree,
                                        .browserScripts = m_browserScripts,
                                        .excludesWindow = [](const WindowIdentity &) { return false; }}};
    FakeHttpTransport m_transport;
    std::shared_ptr<LocalObserverAPI> m_api = std::make_shared<LocalObserverAPI>(
        QUrl(QStringLiteral("http://127.0.0.1:8799")), std::nullopt, m_transport, m_apiWorker);
    ObserverSettings m_settings = ObserverSettings::defaults();
    QStringList m_deaths;
    std::optional<ScreenCaptureRecorder> m_recorder;
    TaskScope m_flows;
};

} // namespace ostrel
