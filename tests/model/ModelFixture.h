#pragma once

#include "ObserverRoot.h"
#include "base/SerialQueue.h"
#include "capture/ScreenCaptureRecorder.h"
#include "context/ActiveApplicationContext.h"
#include "model/AppModel.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeAccessibilityTree.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/FakeDialogHost.h"
#include "support/FakeDisplaySource.h"
#include "support/FakeForegroundSource.h"
#include "support/FakeHttpTransport.h"
#include "support/FakeProcessLauncher.h"
#include "support/FakeScreenCaptureAccess.h"
#include "support/FakeSecretStore.h"
#include "support/FakeSystemSettingsOpener.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeWorkspaceEvents.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

#include <atomic>
#include <latch>
#include <memory>

namespace ostrel {

inline const QString getStatus = QStringLiteral("GET /api/status");
inline const QString postStart = QStringLiteral("POST /api/start");
inline const QString postStop = QStringLiteral("POST /api/stop");
inline const QString postFrames = QStringLiteral("POST /api/frames");

inline const QString startingText = QStringLiteral("Starting recording service\u2026");

// What the fixture notes of a recording.
inline const QString endedByRequest = QStringLiteral("ended: requested");
inline const QString startFailed = QStringLiteral("ended: start failed");
inline const QString captureFailed = QStringLiteral("ended: capture failed");
inline const QString observerStopped = QStringLiteral("ended: observer stopped");
inline const QString observerEnded = QStringLiteral("ended: observer ended");
inline const QString started = QStringLiteral("started");
inline const QString terminated = QStringLiteral("terminate");

/// An answer of the one observer, which names the same session throughout.
inline FakeHttpTransport::Answer statusAnswer(bool running)
{
    ObserverStatus status;
    status.running = running;
    status.sessionId = QStringLiteral("session-1");
    return FakeHttpTransport::answer(status.toJson());
}

/// An answer of an observer that has just been started: it knows of no session.
inline FakeHttpTransport::Answer successorAnswer()
{
    return FakeHttpTransport::answer(ObserverStatus().toJson());
}

/// The whole model over the real process supervisor, client and recorder, with a desktop, an observer and a time that
/// belong to the test: one display of 64 x 36 whose picture is new each time, a batch every 20 s, a picture every 2 s.
class ModelFixture : public testing::Test
{
protected:
    ModelFixture()
    {
        m_settings.outputDirectory = m_folder.filePath(QStringLiteral("journal"));
        m_screen.onPreflight = [this] { return m_screenGranted.load(); };
        m_accessibility.onIsTrusted = [] { return true; };
        m_contextAccessibility.onIsTrusted = [] { return false; };
        m_foreground.onFrontmostApplication = [] { return std::optional<ForegroundApplication>(); };
        m_foreground.onFocusedWindow = [] { return std::optional<FocusedWindow>(); };
        m_foreground.onMouseLocation = [] { return std::optional<QPointF>(); };
        m_displays.show({1});
        m_displays.onCapture = [this](quint32) -> Result<std::optional<FrameView>> {
            if (m_captureFails)
                return std::unexpected(Error{.domain = {}, .code = 0, .localizedDescription = QStringLiteral("gone")});
            if (!m_pictureStays)
                m_picture.fill(m_level += 40);
            return m_picture.view();
        };
    }

    /// The observer's child starts and answers that it doesn't record.
    void launch()
    {
        m_launcher.expectLaunch();
        m_observer.always(getStatus, statusAnswer(false));
        build();
    }

    void build() { build(m_root.path()); }
    void build(std::optional<QString> repoRoot)
    {
        m_model = std::make_unique<AppModel>(AppModel::Dependencies{
            .clock = m_clock,
            .settings = m_settings,
            .localAPIToken = QStringLiteral("local-token"),
            .repoRoot = std::move(repoRoot),
            .launcher = m_launcher,
            .transport = m_observer,
            .observerQueue = m_observerQueue,
            .worker = m_worker,
            .requestQueue = m_requests,
            .recorder = makeRecorder(),
            .screenCapture = m_screen,
            .accessibility = m_accessibility,
            .defaults = m_defaults,
            .systemSettings = m_opener,
            .dialogs = m_dialogs,
            .workspace = m_workspace,
            .settingsStore = m_settingsStore,
            .settingsQueue = m_settingsQueue,
            .terminate = [this] { m_events.append(terminated); },
        });
        QObject::connect(m_model.get(), &AppModel::recordingStarted, [this] { m_events.append(started); });
        QObject::connect(m_model.get(), &AppModel::recordingEnded, [this](RecordingEnd reason) {
            const QStringList names{endedByRequest, startFailed, captureFailed, observerStopped, observerEnded};
            m_events.append(names[int(reason)]);
        });
        settle();
    }

    void settle()
    {
        if (m_recorderHeld)
            settleEvents({&m_context, &m_observerQueue, &m_settingsQueue, &m_requests, &m_worker});
        else if (m_permissionsHeld)
            settleEvents({&m_samples, &m_context, &m_observerQueue, &m_settingsQueue, &m_requests});
        else
            settleEvents({&m_samples, &m_context, &m_observerQueue, &m_settingsQueue, &m_requests, &m_worker});
    }
    /// From now on a start of the recorder hangs until `releaseRecorder`.
    void holdRecorder()
    {
        m_recorderHeld = true;
        m_displays.onShareableContent = [this, show = m_displays.onShareableContent] {
            m_recorderGate.wait();
            return show();
        };
    }
    void releaseRecorder()
    {
        m_recorderGate.count_down();
        m_recorderHeld = false;
        settle();
    }
    /// From now on the permission check hangs until `releasePermissions`.
    void holdPermissions()
    {
        m_permissionsHeld = true;
        m_worker.post([this] { m_permissionsGate.wait(); });
    }
    void releasePermissions()
    {
        m_permissionsGate.count_down();
        m_permissionsHeld = false;
        settle();
    }
    void advance(std::chrono::milliseconds duration)
    {
        m_clock.advance(duration);
        settle();
    }

    /// Presses the button and brings both sides up.
    void record()
    {
        m_observer.expect(postStart, statusAnswer(true));
        m_model->toggleRecording();
        settle();
        m_observer.always(getStatus, statusAnswer(true));
        ASSERT_TRUE(m_model->isRecording());
        ASSERT_TRUE(m_recorder->isCapturing());
        ASSERT_EQ(m_events, QStringList(started));
        m_events.clear();
        m_observer.forgetRequests();
    }

    /// What was sent to the observer, less the polling.
    QStringList commands() const
    {
        QStringList commands = m_observer.endpoints();
        commands.removeAll(getStatus);
        return commands;
    }
    FakeProcessLauncher::Child &child() { return *m_launcher.children().constLast(); }
    static std::optional<QString> text(const char *words) { return QString::fromUtf8(words); }
    static QString words(Fault fault) { return faultError(fault).localizedDescription; }

    QTemporaryDir m_folder;
    ObserverRoot m_root;
    ObserverSettings m_settings = ObserverSettings::defaults();
    ManualClock m_clock{[this] { settle(); }};
    std::atomic<bool> m_screenGranted = true;
    std::atomic<bool> m_captureFails = false;
    std::atomic<bool> m_pictureStays = false;
    std::uint8_t m_level = 0;
    std::latch m_recorderGate{1};
    bool m_recorderHeld = false;
    std::latch m_permissionsGate{1};
    bool m_permissionsHeld = false;
    FakePicture m_picture{64, 36};
    FakeScreenCaptureAccess m_screen;
    FakeAccessibilityAccess m_accessibility;
    FakeAccessibilityAccess m_contextAccessibility;
    FakeForegroundSource m_foreground;
    FakeUserDefaults m_defaults;
    FakeSystemSettingsOpener m_opener;
    FakeDialogHost m_dialogs;
    FakeWorkspaceEvents m_workspace;
    FakeProcessLauncher m_launcher;
    FakeHttpTransport m_observer;
    SerialQueue m_samples{QStringLiteral("test.samples")};
    FakeDisplaySource m_displays{m_samples};
    FakeAccessibilityTree m_tree;
    FakeBrowserScriptRunner m_browserScripts;
    ActiveApplicationContext m_contextReader{{.foreground = m_foreground,
                                              .accessibility = m_contextAccessibility,
                                              .tree = m_tree,
                                              .browserScripts = m_browserScripts,
                                              .excludesWindow = [](const WindowIdentity &) { return false; }}};
    SerialQueue m_context{QStringLiteral("test.context")};
    SerialQueue m_observerQueue{QStringLiteral("test.observer")};
    SerialQueue m_worker{QStringLiteral("test.worker")};
    SerialQueue m_requests{QStringLiteral("test.requests")};
    FakeSecretStore m_secrets;
    SettingsStore m_settingsStore{m_secrets};
    SerialQueue m_settingsQueue{QStringLiteral("test.settings")};
    QStringList m_events; ///< "started", "ended: ..." and "terminate", in order
    ScreenCaptureRecorder *m_recorder = nullptr;
    std::unique_ptr<AppModel> m_model;

private:
    std::unique_ptr<ScreenCaptureRecorder> makeRecorder()
    {
        auto recorder =
            std::make_unique<ScreenCaptureRecorder>(ScreenCaptureRecorder::Dependencies{.clock = m_clock,
                                                                                        .displays = m_displays,
                                                                                        .context = m_contextReader,
                                                                                        .sampleQueue = m_samples,
                                                                                        .contextQueue = m_context,
                                                                                        .processID = 1,
                                                                                        .bundleIdentifier = {}});
        m_recorder = recorder.get();
        return recorder;
    }
};

/// Each test begins with a running recording that has a picture in its buffer.
class RunningRecording : public ModelFixture
{
protected:
    RunningRecording()
    {
        launch();
        record();
    }

    void expectStop(bool answered = true)
    {
        m_observer.expect(postStop, answered ? statusAnswer(false) : FakeHttpTransport::answer({}, 500));
        if (answered)
            m_observer.always(getStatus, statusAnswer(false));
    }
};

} // namespace ostrel
