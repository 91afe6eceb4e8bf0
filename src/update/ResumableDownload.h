#pragma once

#include "update/Feed.h"
#include "update/HttpClient.h"
#include "update/PartFile.h"

#include <functional>

namespace ostrel {

class SerialQueue;

/// Fetches the archive of a release into a file. What was fetched stays on the disk when the connection breaks, or the
/// program ends, and the next attempt goes on from there; the file's name is the archive's hash, so that it is never
/// continued with another archive. Main thread; the disk is written on the worker.
class ResumableDownload
{
public:
    /// Called with the number of bytes that are there.
    using Progress = std::function<void(qint64 received)>;

    /// All outlive this object.
    ResumableDownload(HttpClient &http, Clock &clock, SerialQueue &worker)
        : m_http(http), m_clock(clock), m_worker(worker)
    {}

    /// Ends with the whole file, of the announced size; its content is not looked at. Five attempts in a row that bring
    /// next to nothing, two seconds apart, are the end (DownloadInterrupted), and so is a server that says no, or that
    /// has a file of another size (ArchiveSizeWrong). An attempt is over when it brings less than 60 KiB in a minute.
    /// @param directory where the file goes
    Task<Result<PartFile>> fetch(Release release, QString directory, Progress progress, std::stop_token stop);

private:
    Task<Result<>> attempt(Release release, PartFile file, Progress progress, std::stop_token stop);
    struct Head;
    Task<Result<qint64>> prepare(Release release, PartFile file, Head head, qint64 present, std::stop_token stop);
    Task<Result<>> receive(Release release, PartFile file, HttpAnswerStream answer, qint64 present, Progress progress,
                           std::stop_token stop);
    template <class F>
    Task<std::invoke_result_t<F>> onWorker(F job, std::stop_token stop);

    HttpClient &m_http;
    Clock &m_clock;
    SerialQueue &m_worker;
};

} // namespace ostrel
