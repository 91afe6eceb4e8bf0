#pragma once

#include "update/Installation.h"
#include "update/ResumableDownload.h"

namespace ostrel {

/// Brings a release into an installation. Main thread; what blocks is done by the worker.
class UpdateInstaller
{
public:
    /// What it is busy with.
    enum class Phase { Downloading, Unpacking };
    using Progress = std::function<void(Phase phase, qint64 received)>;

    /// All outlive this object.
    UpdateInstaller(Installation installation, HttpClient &http, Clock &clock, SerialQueue &worker);

    /// Downloads a release, verifies size, hash and signature, and only then unpacks it beside the others.
    Task<Result<>> stage(Release release, UpdateKey key, Progress progress, std::stop_token stop);
    /// Makes a staged version the one that starts next. Once begun it is done, also when it is stopped.
    Task<Result<>> activate(Version version, std::stop_token stop);

private:
    const Installation m_installation;
    ResumableDownload m_download;
    SerialQueue &m_worker;
};

} // namespace ostrel
