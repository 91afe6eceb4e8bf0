#pragma once

#include "base/SerialQueue.h"
#include "base/TaskScope.h"
#include "capture/ScreenCaptureRecorder.h"
#include "context/ActiveApplicationContext.h"
#include "observer/LocalObserverAPI.h"
#include "support/FakeAccessibilityAccess.h"
#include "support/FakeAccessibilityTree.h"
#include "support/FakeBrowserScriptRunner.h"
#include "support/FakeDisplaySource.h"
#include "support/FakeForegroundSource.h"
#include "support/FakeHttpTransport.h"
#include "support/LogRecorder.h"
#include "support/ManualClock.h"
#include "support/Printers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

namespace ostrel {

/// A recorder with everything around it faked: time, displays, foreground, observer.
class RecorderRig : public testing::Test
{
protected:
    static constexpr const char *framesEndpoint = "POST /api/frames";
    static constexpr const char *stopEndpoint = "POST /api/stop";

    RecorderRig()
    {
        displays.show({3});
        displays.onCapture = [this](quint32) { return std::optional(picture.view()); };
        accessibility.onIsTrusted = [] { return false; };
        foreground.onMouseLocation = [] { return std::nullopt; };
        showApplication(QStringLiteral("Editor"));
        settings = ObserverSettings::defaults();
        settings.frameFps = 2;
        settings.chunkSizeMs = 20'000;
        makeRecorder();
    }

    ~RecorderRig() override
    {
        recorder.reset();
        settle();
    }

    void makeRecorder()
    {
        recorder.emplace(ScreenCaptureRecorder::Dependencies{clock, displays, context, sampleQueue, contextQueue, 42,
                                                             QStringLiteral("com.tamsk.ostrel"), endWithoutWaiting,
                                                             patienceAtTheEnd});
        recorder->onStatus = [this](const ObserverStatus &status) { statuses.append(status); };
        recorder->onError = [this](const QString &message) { errors.append(message); };
        recorder->onStreamsDied = [this](const QString &message) { deaths.append(message); };
        recorder->onStalled = [this](const QString &message) { stalls.append(message); };
        recorder->onNoAnswer = [this](const QString &message) { noAnswers.append(message); };
        recorder->onPicturesMissing = [this](const QString &message) { missing.append(message); };
        recorder->onGoesOn = [this] { ++goesOn; };
    }

    void settle()
    {
        if (samplesHang)
            settleEvents({&contextQueue, &apiWorker});
        else if (contextHangs)
            settleEvents({&sampleQueue, &apiWorker});
        else
            settleEvents({&sampleQueue, &contextQueue, &apiWorker});
    }

    void showApplication(const QString &name)
    {
        foreground.onFrontmostApplication = [this, name] {
            ++contextSamples;
            return ForegroundApplication{.localizedName = name, .bundleIdentifier = {}, .processIdentifier = 0};
        };
    }

    /// Begins a start without waiting for it.
    std::shared_ptr<std::optional<Result<>>> beginStart()
    {
        auto outcome = std::make_shared<std::optional<Result<>>>();
        flows.spawn([this, outcome](std::stop_token) -> Task<> { *outcome = co_await recorder->start(settings, api); });
        return outcome;
    }
    /// Starts, and lets everything happen that happens at once.
    Result<> start()
    {
        const auto outcome = beginStart();
        settle();
        EXPECT_TRUE(*outcome) << "start has not ended";
        return *outcome ? **outcome : Result<>(std::unexpected(Error{}));
    }
    /// Begins a stop without waiting for it. @return whether it has ended
    std::shared_ptr<bool> beginStop(bool skipFlush)
    {
        auto ended = std::make_shared<bool>(false);
        flows.spawn([this, ended, skipFlush](std::stop_token) -> Task<> {
            co_await recorder->stop(skipFlush);
            *ended = true;
        });
        return ended;
    }
    void stop(bool skipFlush = false)
    {
        const auto ended = beginStop(skipFlush);
        settle();
        EXPECT_TRUE(*ended) << "stop has not ended";
    }

    void advance(qint64 milliseconds)
    {
        clock.advance(std::chrono::milliseconds(milliseconds));
        settle();
    }

    QString summary()
    {
        settle();
        return recorder->diagnosticSummary();
    }

    static FakeHttpTransport::Answer running(qint64 chunkIndex = 0)
    {
        ObserverStatus status;
        status.running = true;
        status.chunkIndex = chunkIndex;
        return FakeHttpTransport::answer(status.toJson());
    }

    /// The frames of the nth request to the frames endpoint.
    QJsonArray framesOf(int request) const
    {
        QList<FakeHttpTransport::Request> posts;
        for (const FakeHttpTransport::Request &each : transport.requests()) {
            if (each.url.path() == QStringLiteral("/api/frames"))
                posts.append(each);
        }
        if (request >= posts.size())
            return {};
        return QJsonDocument::fromJson(*posts[request].body)[QStringLiteral("frames")].toArray();
    }

    /// Set the level from the main thread only while nothing is being captured.
    FakePicture picture{64, 36};
    int contextSamples = 0;
    bool samplesHang = false;  ///< a picture is being taken for ever, so its queue can't be waited for
    bool contextHangs = false; ///< a sample is being held back, so its queue can't be waited for
    std::function<void(qint64)> endWithoutWaiting; ///< of recorders to come
    std::chrono::milliseconds patienceAtTheEnd{60'000};
    ObserverSettings settings;
    QList<ObserverStatus> statuses;
    QStringList errors;
    QStringList deaths;
    QStringList stalls;
    QStringList noAnswers; ///< what was said of a start or a stop that waits
    QStringList missing;   ///< what was said of missing pictures
    int goesOn = 0;        ///< how often that was said

    SerialQueue sampleQueue{QStringLiteral("samples")};
    SerialQueue contextQueue{QStringLiteral("context")};
    SerialQueue apiWorker{QStringLiteral("api")};
    ManualClock clock{[this] { settle(); }};
    FakeDisplaySource displays{sampleQueue};
    FakeForegroundSource foreground;
    FakeAccessibilityAccess accessibility;
    std::function<bool(const WindowIdentity &)> excludesWindow = [](const WindowIdentity &) { return false; };
    FakeAccessibilityTree tree;
    FakeBrowserScriptRunner browserScripts;
    ActiveApplicationContext context{{.foreground = foreground,
                                      .accessibility = accessibility,
                                      .tree = tree,
                                      .browserScripts = browserScripts,
                                      .excludesWindow = [this](const WindowIdentity &w) { return excludesWindow(w); }}};
    FakeHttpTransport transport;
    std::shared_ptr<LocalObserverAPI> api = std::make_shared<LocalObserverAPI>(
        QUrl(QStringLiteral("http://127.0.0.1:8799")), QStringLiteral("token"), transport, apiWorker);
    std::optional<ScreenCaptureRecorder> recorder;
    TaskScope flows;
};

} // namespace ostrel
