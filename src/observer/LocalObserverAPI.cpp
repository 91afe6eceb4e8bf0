#include "observer/LocalObserverAPI.h"

#include "base/Fault.h"
#include "observer/FramesBody.h"
#include "observer/JsonRecord.h"

namespace ostrel {

namespace {

/// An answer above this size is decoded on the worker: reading it would be felt on the main thread.
constexpr qsizetype largeAnswer = 65'536;

// What an observer answers to a request that it doesn't know.
constexpr int noSuchPath = 404;
constexpr int notImplemented = 501;

const QString archiveTargetPath = QStringLiteral("/api/archive/target");

QByteArray archiveRange(RecordWriter &write, const QString &fromDate, const QString &toDate)
{
    write("fromDate", fromDate);
    write("toDate", toDate);
    return write.finish();
}

} // namespace

LocalObserverAPI::LocalObserverAPI(QUrl baseURL, std::optional<QString> localAuthToken, HttpTransport &transport,
                                   SerialQueue &worker)
    : m_link(std::make_shared<Link>(std::move(baseURL), std::move(localAuthToken), transport, worker))
{}

Task<Result<HttpAnswer>> LocalObserverAPI::send(SharedLink link, QString path, QByteArray method, HttpBody body,
                                                std::stop_token stop)
{
    HttpRequest request{
        .method = std::move(method), .url = link->baseURL.resolved(QUrl(path)), .headers = {}, .body = std::move(body)};
    // Resolving against an invalid address may give a valid one: the host alone, where the port was wrong.
    if (!link->baseURL.isValid() || !request.url.isValid() || request.url.host().isEmpty())
        co_return std::unexpected(faultError(Fault::BadUrl, path));
    if (link->localAuthToken && !link->localAuthToken->isEmpty())
        request.headers.emplaceBack("X-Ostrel-Local-Token", link->localAuthToken->toUtf8());
    if (!std::holds_alternative<std::monostate>(request.body))
        request.headers.emplaceBack("Content-Type", "application/json");
    co_return co_await link->transport.send(std::move(request), std::move(stop));
}

template <class Record>
Task<Result<Record>> LocalObserverAPI::decoded(SharedLink link, HttpAnswer answer, std::stop_token stop)
{
    if (answer.statusCode < 200 || answer.statusCode > 299)
        co_return std::unexpected(faultError(Fault::BadServerResponse));
    if (answer.body.size() <= largeAnswer)
        co_return Record::fromJson(answer.body);
    auto record = co_await link->worker.run(stop, [json = answer.body] { return Record::fromJson(json); });
    if (!record)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return *std::move(record);
}

template <class Record>
Task<Result<Record>> LocalObserverAPI::request(SharedLink link, QString path, QByteArray method, HttpBody body,
                                               std::stop_token stop)
{
    auto answer = co_await send(link, std::move(path), std::move(method), std::move(body), stop);
    if (!answer)
        co_return std::unexpected(answer.error());
    co_return co_await decoded<Record>(link, *std::move(answer), stop);
}

Task<Result<ObserverStatus>> LocalObserverAPI::postFrames(SharedLink link, QList<CapturedFramePayload> frames,
                                                          std::stop_token stop)
{
    // Even its length alone is known only after every text has been escaped.
    auto body = co_await link->worker.run(
        stop, [frames = std::move(frames)]() mutable { return std::make_shared<FramesBody>(std::move(frames)); });
    if (!body)
        co_return std::unexpected(faultError(Fault::Cancelled));
    co_return co_await request<ObserverStatus>(link, QStringLiteral("/api/frames"), "POST",
                                               StreamedBody{*std::move(body), &link->worker}, stop);
}

Task<Result<ObserverStatus>> LocalObserverAPI::status(std::stop_token stop)
{
    return request<ObserverStatus>(m_link, QStringLiteral("/api/status"), "GET", {}, std::move(stop));
}

Task<Result<ObserverStatus>> LocalObserverAPI::startRecording(QString captureMode, std::stop_token stop)
{
    RecordWriter write;
    write("captureMode", captureMode);
    return request<ObserverStatus>(m_link, QStringLiteral("/api/start"), "POST", write.finish(), std::move(stop));
}

Task<Result<ObserverStatus>> LocalObserverAPI::stopRecording(std::stop_token stop)
{
    return request<ObserverStatus>(m_link, QStringLiteral("/api/stop"), "POST", {}, std::move(stop));
}

Task<Result<ObserverStatus>> LocalObserverAPI::submitFrames(QList<CapturedFramePayload> frames, std::stop_token stop)
{
    return postFrames(m_link, std::move(frames), std::move(stop));
}

Task<Result<ObserverSettings>> LocalObserverAPI::saveSettings(ObserverSettings settings, std::stop_token stop)
{
    return request<ObserverSettings>(m_link, QStringLiteral("/api/settings"), "PUT", settings.toJson(),
                                     std::move(stop));
}

Task<Result<ArchiveStatus>> LocalObserverAPI::archiveStatus(std::stop_token stop)
{
    return request<ArchiveStatus>(m_link, QStringLiteral("/api/archive/status"), "GET", {}, std::move(stop));
}

Task<Result<ArchiveStatus>> LocalObserverAPI::prepareArchive(std::stop_token stop)
{
    return request<ArchiveStatus>(m_link, QStringLiteral("/api/archive/prepare"), "POST", {}, std::move(stop));
}

Task<Result<ArchiveStatus>> LocalObserverAPI::enableArchive(std::stop_token stop)
{
    return request<ArchiveStatus>(m_link, QStringLiteral("/api/archive/enable"), "POST", {}, std::move(stop));
}

Task<Result<ArchiveStatus>> LocalObserverAPI::disableArchive(std::stop_token stop)
{
    return request<ArchiveStatus>(m_link, QStringLiteral("/api/archive/disable"), "POST", {}, std::move(stop));
}

Task<Result<ArchiveStatus>> LocalObserverAPI::recoverArchive(QString recoveryKey, std::stop_token stop)
{
    RecordWriter write;
    write("recoveryKey", recoveryKey);
    return request<ArchiveStatus>(m_link, QStringLiteral("/api/archive/recover"), "POST", write.finish(),
                                  std::move(stop));
}

Task<Result<std::optional<ArchiveTarget>>> LocalObserverAPI::getArchiveTarget(SharedLink link, std::stop_token stop)
{
    auto answer = co_await send(link, archiveTargetPath, "GET", {}, stop);
    if (!answer)
        co_return std::unexpected(answer.error());
    if (answer->statusCode == noSuchPath || answer->statusCode == notImplemented)
        co_return std::nullopt;
    co_return co_await decoded<ArchiveTarget>(link, *std::move(answer), stop);
}

Task<Result<std::optional<ArchiveTarget>>> LocalObserverAPI::archiveTarget(std::stop_token stop)
{
    return getArchiveTarget(m_link, std::move(stop));
}

Task<Result<ArchiveTarget>> LocalObserverAPI::setArchiveTarget(ArchiveTarget target, std::stop_token stop)
{
    return request<ArchiveTarget>(m_link, archiveTargetPath, "PUT", target.toJson(), std::move(stop));
}

Task<Result<ArchiveExportEstimate>> LocalObserverAPI::archiveExportEstimate(QString fromDate, QString toDate,
                                                                            std::stop_token stop)
{
    RecordWriter write;
    return request<ArchiveExportEstimate>(m_link, QStringLiteral("/api/archive/export/estimate"), "POST",
                                          archiveRange(write, fromDate, toDate), std::move(stop));
}

Task<Result<ArchiveExportStatus>> LocalObserverAPI::startArchiveExport(QString destinationDirectory, QString fromDate,
                                                                       QString toDate, std::stop_token stop)
{
    RecordWriter write;
    write("destinationDirectory", destinationDirectory);
    return request<ArchiveExportStatus>(m_link, QStringLiteral("/api/archive/export"), "POST",
                                        archiveRange(write, fromDate, toDate), std::move(stop));
}

Task<Result<ArchiveExportStatus>> LocalObserverAPI::archiveExportStatus(std::stop_token stop)
{
    return request<ArchiveExportStatus>(m_link, QStringLiteral("/api/archive/export/status"), "GET", {},
                                        std::move(stop));
}

Task<Result<ArchiveExportStatus>> LocalObserverAPI::cancelArchiveExport(std::stop_token stop)
{
    return request<ArchiveExportStatus>(m_link, QStringLiteral("/api/archive/export/cancel"), "POST", {},
                                        std::move(stop));
}

Task<Result<RequestPreview>> LocalObserverAPI::preview(bool withPictures, std::stop_token stop)
{
    const QString path = withPictures ? QStringLiteral("/api/preview?pictures=1") : QStringLiteral("/api/preview");
    return request<RequestPreview>(m_link, path, "GET", {}, std::move(stop));
}

Task<Result<ForgetReport>> LocalObserverAPI::forget(qint64 fromMs, qint64 toMs, std::stop_token stop)
{
    RecordWriter write;
    write("fromMs", fromMs);
    write("toMs", toMs);
    return request<ForgetReport>(m_link, QStringLiteral("/api/forget"), "POST", write.finish(), std::move(stop));
}

} // namespace ostrel
