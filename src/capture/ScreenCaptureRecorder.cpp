#include "capture/ScreenCaptureRecorder.h"

#include "capture/RecorderSession.h"

#include <utility>

namespace ostrel {

ScreenCaptureRecorder::ScreenCaptureRecorder(Dependencies dependencies)
    : m_session(std::make_shared<RecorderSession>(*this, std::move(dependencies)))
{}

ScreenCaptureRecorder::~ScreenCaptureRecorder()
{
    m_session->shutDown();
}

Task<Result<>> ScreenCaptureRecorder::start(ObserverSettings settings, std::shared_ptr<LocalObserverAPI> api)
{
    return RecorderSession::start(m_session, std::move(settings), std::move(api));
}

Task<ScreenCaptureRecorder::StopOutcome> ScreenCaptureRecorder::stop(bool skipFlush)
{
    return RecorderSession::stop(m_session, skipFlush);
}

void ScreenCaptureRecorder::interruptWaiting()
{
    m_session->interruptWaiting();
}

void ScreenCaptureRecorder::setPaused(bool paused)
{
    m_session->setPaused(paused);
}

bool ScreenCaptureRecorder::isCapturing() const
{
    return m_session->isCapturing();
}

bool ScreenCaptureRecorder::hasLeftBehind() const
{
    return m_session->hasLeftBehind();
}

std::optional<QString> ScreenCaptureRecorder::whyNoPicture() const
{
    return m_session->whyNoPicture();
}

QString ScreenCaptureRecorder::diagnosticSummary() const
{
    return m_session->diagnosticSummary();
}

} // namespace ostrel
