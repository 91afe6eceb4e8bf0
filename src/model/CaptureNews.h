#pragma once

#include "observer/WireRecords.h"

#include <QObject>
#include <QString>
#include <functional>

namespace ostrel {

class ScreenCaptureRecorder;

/// What the recorder says by itself of a recording that goes on. What it says of one that has begun to end, or has
/// ended, is passed on to nobody. Main thread.
class CaptureNews : public QObject
{
    Q_OBJECT

public:
    /// Takes the recorder's callbacks, except that of a batch that was refused, which is no news but an end.
    /// @param recorder    outlives this object
    /// @param isCapturing whether there is a recording that has not begun to end
    CaptureNews(ScreenCaptureRecorder &recorder, std::function<bool()> isCapturing);
    ~CaptureNews() override;

Q_SIGNALS:
    /// Capture has ended by itself.
    void captureDied(const QString &message);
    /// The displays are no longer those that are captured.
    void displaysChanged();
    /// Nothing has been done for a display for half a minute; told again while it lasts.
    void captureStalled(const QString &message);
    /// Nothing is wrong with capture, and yet half a minute after it was started it has not got one picture.
    void picturesMissing(const QString &message);
    /// A start of capture has waited for half a minute without an answer; it still does.
    void captureStartStalled(const QString &message);
    /// All displays are alive: some seconds after capture was started, or after a stall.
    void captureGoesOn();
    /// The observer answered a batch.
    void observerStatusReceived(const ostrel::ObserverStatus &status);

private:
    template <class... Arguments>
    std::function<void(Arguments...)> outlet(void (CaptureNews::*signal)(Arguments...))
    {
        return [this, signal](Arguments... arguments) {
            if (m_isCapturing())
                Q_EMIT(this->*signal)(arguments...);
        };
    }

    ScreenCaptureRecorder &m_recorder;
    const std::function<bool()> m_isCapturing;
};

} // namespace ostrel
