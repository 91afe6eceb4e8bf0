#include "model/CaptureNews.h"

#include "capture/ScreenCaptureRecorder.h"

#include <utility>

namespace ostrel {

CaptureNews::CaptureNews(ScreenCaptureRecorder &recorder, std::function<bool()> isCapturing)
    : m_recorder(recorder), m_isCapturing(std::move(isCapturing))
{
    // The answer to a final flush says "running" and may come after that of the stop.
    m_recorder.onStatus = outlet(&CaptureNews::observerStatusReceived);
    m_recorder.onStreamsDied = outlet(&CaptureNews::captureDied);
    m_recorder.onDisplaysChanged = outlet(&CaptureNews::displaysChanged);
    m_recorder.onStalled = outlet(&CaptureNews::captureStalled);
    m_recorder.onNoAnswer = outlet(&CaptureNews::captureStartStalled);
    m_recorder.onPicturesMissing = outlet(&CaptureNews::picturesMissing);
    m_recorder.onGoesOn = outlet(&CaptureNews::captureGoesOn);
}

CaptureNews::~CaptureNews()
{
    m_recorder.onStatus = nullptr;
    m_recorder.onStreamsDied = nullptr;
    m_recorder.onDisplaysChanged = nullptr;
    m_recorder.onStalled = nullptr;
    m_recorder.onNoAnswer = nullptr;
    m_recorder.onPicturesMissing = nullptr;
    m_recorder.onGoesOn = nullptr;
}

} // namespace ostrel
