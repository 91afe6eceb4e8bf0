#pragma once

#include "base/Error.h"
#include "base/SerialQueue.h"
#include "base/Task.h"
#include "observer/ArchiveTarget.h"
#include "observer/HttpTransport.h"
#include "observer/ObserverSettings.h"
#include "observer/RequestPreview.h"
#include "observer/WireRecords.h"

#include <QString>
#include <QUrl>
#include <memory>
#include <optional>
#include <stop_token>

namespace ostrel {

/// The only channel to the observer: one request and one decoded record a call. It holds no state that changes, so
/// calls may run side by side, and calls under way survive its destruction. Main thread; bodies are built and answers
/// decoded on the given worker where they may be large. Each call fails with the transport's error, Fault::BadUrl,
/// Fault::BadServerResponse (any status outside 200 to 299), Fault::UndecodableAnswer, or Fault::Cancelled when
/// stopped.
class LocalObserverAPI
{
public:
    /// @param localAuthToken sent as "X-Ostrel-Local-Token"; without one, or with an empty one, no header is sent
    /// @param transport      like the worker, it outlives the calls
    LocalObserverAPI(QUrl baseURL, std::optional<QString> localAuthToken, HttpTransport &transport,
                     SerialQueue &worker);

    const QUrl &baseURL() const { return m_link->baseURL; }

    Task<Result<ObserverStatus>> status(std::stop_token stop);
    Task<Result<ObserverStatus>> startRecording(QString captureMode, std::stop_token stop);
    Task<Result<ObserverStatus>> stopRecording(std::stop_token stop);
    Task<Result<ObserverStatus>> submitFrames(QList<CapturedFramePayload> frames, std::stop_token stop);
    Task<Result<ObserverSettings>> saveSettings(ObserverSettings settings, std::stop_token stop);

    Task<Result<ArchiveStatus>> archiveStatus(std::stop_token stop);
    Task<Result<ArchiveStatus>> prepareArchive(std::stop_token stop);
    Task<Result<ArchiveStatus>> enableArchive(std::stop_token stop);
    Task<Result<ArchiveStatus>> disableArchive(std::stop_token stop);
    Task<Result<ArchiveStatus>> recoverArchive(QString recoveryKey, std::stop_token stop);
    /// Where the archive lies; none from an observer that lets nobody choose.
    Task<Result<std::optional<ArchiveTarget>>> archiveTarget(std::stop_token stop);
    Task<Result<ArchiveTarget>> setArchiveTarget(ArchiveTarget target, std::stop_token stop);
    Task<Result<ArchiveExportEstimate>> archiveExportEstimate(QString fromDate, QString toDate, std::stop_token stop);
    Task<Result<ArchiveExportStatus>> startArchiveExport(QString destinationDirectory, QString fromDate, QString toDate,
                                                         std::stop_token stop);
    Task<Result<ArchiveExportStatus>> archiveExportStatus(std::stop_token stop);
    Task<Result<ArchiveExportStatus>> cancelArchiveExport(std::stop_token stop);

    /// What would be sent to a model next; nothing is. With its pictures it takes some tens of megabytes.
    Task<Result<RequestPreview>> preview(bool withPictures, std::stop_token stop);
    /// Removes a time from everything that the observer keeps. Both ends, in wall-clock milliseconds since 1970, belong
    /// to it.
    Task<Result<ForgetReport>> forget(qint64 fromMs, qint64 toMs, std::stop_token stop);

private:
    /// What a call needs. Calls under way share it, so that this object may be replaced meanwhile.
    struct Link {
        QUrl baseURL;
        std::optional<QString> localAuthToken;
        HttpTransport &transport;
        SerialQueue &worker;
    };
    using SharedLink = std::shared_ptr<const Link>;

    /// Whatever the status of the answer.
    static Task<Result<HttpAnswer>> send(SharedLink link, QString path, QByteArray method, HttpBody body,
                                         std::stop_token stop);
    template <class Record>
    static Task<Result<Record>> decoded(SharedLink link, HttpAnswer answer, std::stop_token stop);
    template <class Record>
    static Task<Result<Record>> request(SharedLink link, QString path, QByteArray method, HttpBody body,
                                        std::stop_token stop);
    static Task<Result<ObserverStatus>> postFrames(SharedLink link, QList<CapturedFramePayload> frames,
                                                   std::stop_token stop);
    static Task<Result<std::optional<ArchiveTarget>>> getArchiveTarget(SharedLink link, std::stop_token stop);

    const SharedLink m_link;
};

} // namespace ostrel
