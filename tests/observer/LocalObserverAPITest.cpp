#include "observer/LocalObserverAPI.h"

#include "base/Fault.h"
#include "base/TaskScope.h"
#include "support/FakeHttpTransport.h"
#include "support/ManualClock.h"
#include "support/Printers.h"
#include "support/RunTask.h"

#include <gmock/gmock.h>

#include <latch>

using namespace ostrel;

namespace {

const QByteArray idleStatus = R"({"running":false,"chunkIndex":0})";
const QByteArray archive = R"({"archiveEnabled":true,"archiveVaultId":"v","hasRecoveryKey":true})";
const QByteArray noPlace = R"({"kind":"none","lossless":false})";
const QByteArray exportStatus = R"({"state":"running","exported":1,"total":2,"skipped":0})";

class Api : public testing::Test
{
protected:
    QByteArray onlyHeader(const QByteArray &name) const
    {
        QList<QByteArray> values;
        for (const auto &[key, value] : m_transport.requests().last().headers) {
            if (key.compare(name, Qt::CaseInsensitive) == 0)
                values.append(value);
        }
        return values.size() == 1 ? values.first() : QByteArray::number(values.size()) + " values";
    }

    FakeHttpTransport m_transport;
    SerialQueue m_worker{QStringLiteral("api worker")};
    LocalObserverAPI m_api{QUrl(QStringLiteral("http://127.0.0.1:8799")), QStringLiteral("token"), m_transport,
                           m_worker};
};

TEST_F(Api, everyOperation_usesItsMethodPathAndBody)
{
    using Stop = std::stop_token;
    const auto check = [this](const char *endpoint, const QByteArray &answer, auto make, const char *body) {
        SCOPED_TRACE(endpoint);
        m_transport.expect(QString::fromLatin1(endpoint), FakeHttpTransport::answer(answer));
        using Answer = typename decltype(make(Stop()))::value_type;
        const auto result = runTask<Answer>(make);
        ASSERT_TRUE(result.has_value());
        EXPECT_TRUE(result->has_value());
        const FakeHttpTransport::Request &request = m_transport.requests().last();
        EXPECT_EQ(request.url.host(), QStringLiteral("127.0.0.1"));
        EXPECT_EQ(request.url.port(), 8799);
        EXPECT_EQ(onlyHeader("X-Ostrel-Local-Token"), QByteArray("token"));
        EXPECT_EQ(request.body.has_value(), body != nullptr);
        EXPECT_EQ(request.body.value_or(QByteArray()), QByteArray(body));
        EXPECT_EQ(onlyHeader("Content-Type"), QByteArray(body ? "application/json" : "0 values"));
    };
    const QString from = QStringLiteral("2026-01-01"), to = QStringLiteral("2026-01-31");
    const ObserverSettings settings = ObserverSettings::defaults();
    check("GET /api/status", idleStatus, [&](Stop s) { return m_api.status(s); }, nullptr);
    check(
        "POST /api/start", idleStatus, [&](Stop s) { return m_api.startRecording(QStringLiteral("external"), s); },
        R"({"captureMode":"external"})");
    check("POST /api/stop", idleStatus, [&](Stop s) { return m_api.stopRecording(s); }, nullptr);
    check("POST /api/frames", idleStatus, [&](Stop s) { return m_api.submitFrames({}, s); }, R"({"frames":[]})");
    check(
        "PUT /api/settings", "{}", [&](Stop s) { return m_api.saveSettings(settings, s); },
        settings.toJson().constData());
    check("GET /api/archive/status", archive, [&](Stop s) { return m_api.archiveStatus(s); }, nullptr);
    check("POST /api/archive/prepare", archive, [&](Stop s) { return m_api.prepareArchive(s); }, nullptr);
    check("POST /api/archive/enable", archive, [&](Stop s) { return m_api.enableArchive(s); }, nullptr);
    check("POST /api/archive/disable", archive, [&](Stop s) { return m_api.disableArchive(s); }, nullptr);
    check(
        "POST /api/archive/recover", archive, [&](Stop s) { return m_api.recoverArchive(QStringLiteral("k"), s); },
        R"({"recoveryKey":"k"})");
    check("GET /api/archive/target", noPlace, [&](Stop s) { return m_api.archiveTarget(s); }, nullptr);
    check(
        "PUT /api/archive/target", noPlace, [&](Stop s) { return m_api.setArchiveTarget({}, s); }, noPlace.constData());
    check(
        "POST /api/archive/export/estimate", R"({"clips":1,"bytes":2})",
        [&](Stop s) { return m_api.archiveExportEstimate(from, to, s); },
        R"({"fromDate":"2026-01-01","toDate":"2026-01-31"})");
    check(
        "POST /api/archive/export", exportStatus,
        [&](Stop s) { return m_api.startArchiveExport(QStringLiteral("/tmp/a"), from, to, s); },
        R"({"destinationDirectory":"/tmp/a","fromDate":"2026-01-01","toDate":"2026-01-31"})");
    check(
        "GET /api/archive/export/status", exportStatus, [&](Stop s) { return m_api.archiveExportStatus(s); }, nullptr);
    check(
        "POST /api/archive/export/cancel", exportStatus, [&](Stop s) { return m_api.cancelArchiveExport(s); }, nullptr);
    check("GET /api/preview", R"({"frames":[]})", [&](Stop s) { return m_api.preview(false, s); }, nullptr);
    check(
        "POST /api/forget", ForgetReport().toJson(), [&](Stop s) { return m_api.forget(1, 2, s); },
        R"({"fromMs":1,"toMs":2})");
}

TEST_F(Api, noTokenOrAnEmptyOne_sendsNoTokenHeader)
{
    m_transport.always(QStringLiteral("GET /api/status"), FakeHttpTransport::answer(idleStatus));
    for (const auto &token : {std::optional<QString>(), std::optional(QString())}) {
        LocalObserverAPI api(m_api.baseURL(), token, m_transport, m_worker);
        ASSERT_TRUE(runTask<Result<ObserverStatus>>([&](auto stop) { return api.status(stop); }));
        EXPECT_EQ(onlyHeader("X-Ostrel-Local-Token"), QByteArray("0 values"));
    }
}

TEST_F(Api, statusOutside200To299_isABadServerResponseWhateverTheBody)
{
    for (const int status : {199, 301, 302, 401, 404, 500, 501}) {
        m_transport.expect(QStringLiteral("GET /api/status"), FakeHttpTransport::answer(idleStatus, status));
        const auto result = runTask<Result<ObserverStatus>>([&](auto stop) { return m_api.status(stop); });
        ASSERT_TRUE(result && !*result);
        EXPECT_TRUE(isFault(result->error(), Fault::BadServerResponse)) << status;
    }
    m_transport.expect(QStringLiteral("GET /api/status"), FakeHttpTransport::answer(idleStatus, 299));
    EXPECT_TRUE(runTask<Result<ObserverStatus>>([&](auto stop) { return m_api.status(stop); })->has_value());
}

TEST_F(Api, archiveTargetOfAnObserverThatKnowsNone_isNoneAndNoFailure)
{
    const QString endpoint = QStringLiteral("GET /api/archive/target");
    using Answer = Result<std::optional<ArchiveTarget>>;
    for (const int status : {404, 501}) {
        m_transport.expect(endpoint, FakeHttpTransport::answer("{}", status));
        EXPECT_EQ(runTask<Answer>([&](auto stop) { return m_api.archiveTarget(stop); })->value(), std::nullopt);
    }
    m_transport.expect(endpoint, FakeHttpTransport::answer(noPlace, 409));
    const auto refused = runTask<Answer>([&](auto stop) { return m_api.archiveTarget(stop); });
    EXPECT_TRUE(isFault(refused->error(), Fault::BadServerResponse));
}

TEST_F(Api, answerThatIsNoRecord_failsAsUndecodable)
{
    for (const char *body : {"", "[]", "{}", R"({"running":true})"}) {
        m_transport.expect(QStringLiteral("GET /api/status"), FakeHttpTransport::answer(body));
        const auto result = runTask<Result<ObserverStatus>>([&](auto stop) { return m_api.status(stop); });
        ASSERT_TRUE(result && !*result);
        EXPECT_TRUE(isFault(result->error(), Fault::UndecodableAnswer)) << body;
    }
}

TEST_F(Api, transportError_isPassedOnAsItIs)
{
    m_transport.expect(QStringLiteral("POST /api/stop"), FakeHttpTransport::failure(Fault::ConnectionRefused));
    const auto result = runTask<Result<ObserverStatus>>([&](auto stop) { return m_api.stopRecording(stop); });
    EXPECT_EQ(result->error(), faultError(Fault::ConnectionRefused));
}

TEST_F(Api, portThatIsNone_failsAsABadUrlAndSendsNothing)
{
    ObserverSettings settings = ObserverSettings::defaults();
    settings.localPort = 70000;
    LocalObserverAPI api(settings.localhostBaseURL(), QStringLiteral("token"), m_transport, m_worker);
    const auto result = runTask<Result<ObserverStatus>>([&](auto stop) { return api.status(stop); });
    EXPECT_TRUE(isFault(result->error(), Fault::BadUrl));
    EXPECT_TRUE(m_transport.requests().isEmpty());
}

TEST_F(Api, cancelledCall_hasEndedWhenCancelReturns)
{
    const auto held = m_transport.expectHeld(QStringLiteral("GET /api/status"));
    std::optional<Result<ObserverStatus>> result;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> { result = co_await m_api.status(stop); });
    ASSERT_TRUE(held->hasArrived());
    slot.cancel();
    ASSERT_TRUE(result.has_value());
    EXPECT_TRUE(isFault(result->error(), Fault::Cancelled));
    EXPECT_TRUE(held->wasCancelled());
}

TEST_F(Api, largeAnswer_isDecodedOnTheWorkerWithTheSameOutcome)
{
    const QString text(100'000, u'x');
    ObserverStatus expected;
    expected.sessionId = text;
    m_transport.expect(QStringLiteral("GET /api/status"), FakeHttpTransport::answer(expected.toJson()));
    const auto result = runTask<Result<ObserverStatus>>([&](auto stop) { return m_api.status(stop); });
    EXPECT_EQ(result->value(), expected);
}

TEST_F(Api, apiReplacedDuringACall_theCallStillAnswers)
{
    auto api = std::make_unique<LocalObserverAPI>(m_api.baseURL(), QStringLiteral("token"), m_transport, m_worker);
    m_transport.expect(QStringLiteral("POST /api/frames"), FakeHttpTransport::answer(idleStatus));
    std::optional<Result<ObserverStatus>> result;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> { result = co_await api->submitFrames({}, stop); });
    api.reset();
    ASSERT_TRUE(pumpUntil([&] { return result.has_value(); }));
    EXPECT_TRUE(result->has_value());
}

/// A batch whose pictures alone are 52 MB in base64.
QList<CapturedFramePayload> largeBatch()
{
    CapturedFramePayload frame;
    frame.videoBase64 = Base64Text::ofBytes(QByteArray(750'000, '\0'));
    frame.text = QStringLiteral("Application: Editor\nWindow: \"a\" é");
    QList<CapturedFramePayload> frames;
    for (; frames.size() < 52; ++frame.frameIndex)
        frames.append(frame);
    return frames;
}

TEST_F(Api, batchOf52MB_isBuiltOffTheMainThread)
{
    std::latch workerMayGoOn(1);
    m_worker.post([&] { workerMayGoOn.wait(); });
    const auto held = m_transport.expectHeld(QStringLiteral("POST /api/frames"));
    std::optional<Result<ObserverStatus>> result;
    TaskSlot slot;
    slot.start([&](std::stop_token stop) -> Task<> { result = co_await m_api.submitFrames(largeBatch(), stop); });

    // The worker is stuck: were the body built here, the request would be on its way by now.
    bool eventHandled = false;
    QTimer::singleShot(0, [&] { eventHandled = true; });
    ASSERT_TRUE(pumpUntil([&] { return eventHandled; }));
    EXPECT_FALSE(held->hasArrived());

    workerMayGoOn.count_down();
    ASSERT_TRUE(pumpUntil([&] { return held->hasArrived(); }));
    const QByteArray body = *m_transport.requests().last().body;
    EXPECT_GT(body.size(), 52'000'000);
    EXPECT_EQ(body.left(40), QByteArray(R"({"frames":[{"receivedAtMs":0,"frameIndex":0,"videoBase64":")").left(40));
    EXPECT_TRUE(body.endsWith("}]}"));
    EXPECT_EQ(body.count(R"("frameIndex":)"), 52);
    held->release(FakeHttpTransport::answer(idleStatus));
    ASSERT_TRUE(result.has_value());
    EXPECT_TRUE(result->has_value());
}

} // namespace
