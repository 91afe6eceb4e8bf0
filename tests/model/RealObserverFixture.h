#pragma once

#include "base/Fault.h"
#include "base/Files.h"
#include "base/SerialQueue.h"
#include "capture/ScreenCaptureRecorder.h"
#include "context/ActiveApplicationContext.h"
#include "model/AppModel.h"
#include "observer/NetworkTransport.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeAccessibilityTree.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/FakeDialogHost.h"
#include "support/FakeDisplaySource.h"
#include "support/FakeForegroundSource.h"
#include "support/FakeScreenCaptureAccess.h"
#include "support/FakeSecretStore.h"
#include "support/FakeSystemSettingsOpener.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeWorkspaceEvents.h"
#include "support/FreePort.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/RunTask.h"
#include "support/TestHome.h"
#include "support/WatchedLauncher.h"
#include "support/WatchedTransport.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QMutex>
#include <QThread>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <memory>
#include <unistd.h>

namespace ostrel {

inline const QString getStatus = QStringLiteral("GET /api/status");
inline const QString postStart = QStringLiteral("POST /api/start");
inline const QString postStop = QStringLiteral("POST /api/stop");
inline const QString postFrames = QStringLiteral("POST /api/frames");

/// The whole model over the built observer, as a real process, and real requests. Only desktop and time belong to the
/// test: one display whose picture is new every two seconds, and a window with a title; a batch every five seconds.
class RealObserver : public testing::Test
{
protected:
    RealObserver()
    {
        m_settings.localPort = freePort();
        m_settings.chunkSizeMs = 5000;
        m_settings.outputDirectory = m_home.path(QStringLiteral("journal"));
        const QByteArray json = "{\"localPort\": " + QByteArray::number(m_settings.localPort) +
                                ", \"chunkSizeMs\": 5000, \"outputDirectory\": \"" +
                                m_settings.outputDirectory.toUtf8() + "\"}";
        EXPECT_TRUE(writeFileAtomically(m_home.path(QStringLiteral(".ostrel/settings.json")), json));
        m_screen.onPreflight = [] { return true; };
        m_accessibility.onIsTrusted = [] { return true; };
        m_foreground.onFrontmostApplication = [] {
            return ForegroundApplication{.localizedName = QStringLiteral("Terminal"), .bundleIdentifier = {}};
        };
        m_foreground.onFocusedWindow = [this] {
            const QMutexLocker lock(&m_titleMutex);
            return FocusedWindow{.title = m_title, .frame = {}};
        };
        m_foreground.onMouseLocation = [] { return std::optional<QPointF>(); };
        m_displays.show({1});
        m_displays.onCapture = [this](quint32) -> Result<std::optional<FrameView>> {
            if (!m_pictureStays)
                m_picture.fill(m_level += 40);
            return m_picture.view();
        };
    }

    void SetUp() override { build(observerFolder()); }

    ~RealObserver() override
    {
        m_model.reset();
        for (const pid_t process : m_launcher.processes()) {
            if (isAlive(process))
                ::kill(process, SIGKILL);
        }
        EXPECT_TRUE(pumpUntil([this] { return livingChildren() == 0; })) << "an observer outlives the test";
    }

    static QString observerFolder() { return QStringLiteral(OSTREL_BUILD_DIR "/share/ostrel/Observer"); }

    void build(const QString &repoRoot)
    {
        m_model = std::make_unique<AppModel>(AppModel::Dependencies{
            .clock = m_clock,
            .settings = m_settings,
            .localAPIToken = QStringLiteral("local-token"),
            .repoRoot = repoRoot,
            .launcher = m_launcher,
            .transport = m_transport,
            .observerQueue = m_observerQueue,
            .worker = m_worker,
            .requestQueue = m_requests,
            .recorder =
                std::make_unique<ScreenCaptureRecorder>(ScreenCaptureRecorder::Dependencies{.clock = m_clock,
                                                                                            .displays = m_displays,
                                                                                            .context = m_contextReader,
                                                                                            .sampleQueue = m_samples,
                                                                                            .contextQueue = m_context,
                                                                                            .processID = 1,
                                                                                            .bundleIdentifier = {}}),
            .screenCapture = m_screen,
            .accessibility = m_accessibility,
            .defaults = m_defaults,
            .systemSettings = m_opener,
            .dialogs = m_dialogs,
            .workspace = m_workspace,
            .settingsStore = m_settingsStore,
            .settingsQueue = m_settingsQueue,
            .terminate = [this] { m_terminated = true; },
        });
        QObject::connect(m_model.get(), &AppModel::recordingStarted, [this] { ++m_startCount; });
        QObject::connect(m_model.get(), &AppModel::recordingEnded, [this](RecordingEnd reason) { m_ends << reason; });
    }

    void settle() { settleEvents({&m_samples, &m_context, &m_observerQueue, &m_worker}); }
    /// Lets what is on its way arrive; no time passes.
    void arrive()
    {
        EXPECT_TRUE(pumpUntil([this] { return m_transport.onTheirWay() == 0; }))
            << "a request is never answered: " << m_transport.endpointsOnTheirWay().join(u' ').toStdString();
        settle();
    }
    /// Time passes in small steps, and after each the observer has answered.
    void simulate(std::chrono::milliseconds duration)
    {
        constexpr std::chrono::milliseconds step{500};
        for (auto passed = step; passed <= duration; passed += step) {
            m_clock.advance(step);
            arrive();
        }
    }
    /// Until the observer of the last launch serves; takes real time, and none of the test's.
    void awaitObserver()
    {
        const auto serves = [this] {
            return portOwner(quint16(m_settings.localPort), ::geteuid()) == Result<PortOwner>(PortOwner::OurUser);
        };
        ASSERT_TRUE(pumpUntil(serves)) << "the observer does not come up";
    }
    /// Makes the observer hang, and returns when it does; nothing may be on its way.
    void freezeObserver()
    {
        signalObserver(SIGSTOP);
        const QString stat = QStringLiteral("/proc/%1/stat").arg(m_launcher.processes().constLast());
        const QDeadlineTimer limit(20'000);
        while (!readFile(stat).value_or(QByteArray()).contains(") T ") && !limit.hasExpired())
            QThread::yieldCurrentThread(); // no event may come between
        m_sentBeforeFreeze = m_transport.sentCount();
    }
    void thawObserver() { signalObserver(SIGCONT); }
    /// Until the request, and whatever else was sent to the frozen observer, lies in its sockets.
    void awaitDelivery(const QString &endpoint)
    {
        ASSERT_TRUE(pumpUntil([&] {
            return m_transport.onTheirWay(endpoint) > 0 &&
                   unreadRequests() == m_transport.sentCount() - m_sentBeforeFreeze;
        })) << endpoint.toStdString()
            << ": " << m_transport.onTheirWay(endpoint) << " on their way, " << unreadRequests() << " of "
            << m_transport.sentCount() - m_sentBeforeFreeze << " lie in the observer's sockets";
    }
    /// The observer's connections that hold something that it has not read.
    int unreadRequests() const
    {
        const QByteArray ourPort = ":" + QByteArray::number(m_settings.localPort, 16).toUpper().rightJustified(4, '0');
        const QByteArray established = "01";
        const QByteArray closedByUs = "08";
        int count = 0;
        for (const QByteArray &line : readFile(QStringLiteral("/proc/net/tcp")).value_or(QByteArray()).split('\n')) {
            // number, local address, remote address, state, queue to send:queue to read
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() < 5 || !fields[1].endsWith(ourPort))
                continue;
            // The end of a connection counts as a byte that waits to be read.
            const qint64 unread = fields[4].split(':').last().toLongLong(nullptr, 16);
            if ((fields[3] == established && unread > 0) || (fields[3] == closedByUs && unread > 1))
                ++count;
        }
        return count;
    }

    /// Presses the button with a window of that title in front, and waits until both sides record.
    void record(const QString &title)
    {
        {
            const QMutexLocker lock(&m_titleMutex);
            m_title = title;
        }
        awaitObserver();
        const int before = m_startCount;
        m_model->toggleRecording();
        ASSERT_TRUE(pumpUntil([&] { return m_startCount > before; }));
        arrive();
        m_ends.clear();
    }
    /// The next poll finds nobody and starts a successor; the one after it is answered.
    void meetTheSuccessor()
    {
        simulate(std::chrono::milliseconds(1500));
        awaitObserver();
        simulate(std::chrono::milliseconds(1500));
    }

    void awaitEnd()
    {
        ASSERT_TRUE(pumpUntil([this] { return !m_ends.isEmpty(); })) << "the recording does not end";
    }
    /// Sends what is in the buffer, and puts nothing more there.
    void emptyTheBuffer()
    {
        m_pictureStays = true;
        simulate(std::chrono::seconds(6));
    }

    void signalObserver(int number) { ::kill(m_launcher.processes().constLast(), number); }
    /// Kills it and waits until the kernel has closed its sockets.
    void killObserver()
    {
        const pid_t process = m_launcher.processes().constLast();
        ::kill(process, SIGKILL);
        ASSERT_TRUE(pumpUntil([process] { return !isAlive(process); }));
    }
    static bool isAlive(pid_t process) { return ::kill(process, 0) == 0; }
    int livingChildren() const
    {
        return int(std::count_if(m_launcher.processes().begin(), m_launcher.processes().end(), isAlive));
    }

    QByteArray journal() const
    {
        const QDir folder(m_settings.outputDirectory);
        QByteArray text;
        for (const QString &name : folder.entryList({QStringLiteral("*.md")}))
            text += readFile(folder.filePath(name)).value_or(QByteArray());
        return text;
    }
    /// How many lines of the journal name it.
    int lineCount(const QString &title) const { return int(journal().count(title.toUtf8())); }
    void awaitLine(const QString &title)
    {
        EXPECT_TRUE(pumpUntil([&] { return lineCount(title) > 0; })) << title.toStdString() << " is lost";
    }

    TestHome m_home;
    ObserverSettings m_settings = ObserverSettings::defaults();
    ManualClock m_clock{[this] { settle(); }};
    std::atomic<bool> m_pictureStays = false;
    std::uint8_t m_level = 0;
    FakePicture m_picture{64, 36};
    QMutex m_titleMutex;
    QString m_title;
    FakeScreenCaptureAccess m_screen;
    FakeAccessibilityAccess m_accessibility;
    FakeForegroundSource m_foreground;
    FakeUserDefaults m_defaults;
    FakeSystemSettingsOpener m_opener;
    FakeDialogHost m_dialogs;
    FakeWorkspaceEvents m_workspace;
    WatchedLauncher m_launcher;
    NetworkTransport m_network{m_clock};
    WatchedTransport m_transport{m_network};
    SerialQueue m_samples{QStringLiteral("test.samples")};
    FakeDisplaySource m_displays{m_samples};
    FakeAccessibilityTree m_tree;
    FakeBrowserScriptRunner m_browserScripts;
    ActiveApplicationContext m_contextReader{{.foreground = m_foreground,
                                              .accessibility = m_accessibility,
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
    int m_startCount = 0;
    QList<RecordingEnd> m_ends; ///< since the last start
    bool m_terminated = false;
    int m_sentBeforeFreeze = 0;
    std::unique_ptr<AppModel> m_model;
};

} // namespace ostrel
