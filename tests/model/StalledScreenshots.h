#pragma once

#include "ModelFixture.h"

#include <atomic>
#include <latch>

namespace ostrel {

/// A recording whose pictures the test can have hang.
class StalledScreenshots : public RunningRecording
{
protected:
    StalledScreenshots()
    {
        m_observer.always(postFrames, statusAnswer(true));
        m_displays.onCapture = [this](quint32) -> Result<std::optional<FrameView>> {
            if (m_hangs)
                m_release.wait();
            return m_picture.view();
        };
        m_displays.onShareableContent = [this, show = m_displays.onShareableContent] {
            ++m_starts;
            return show();
        };
        QObject::connect(m_model.get(), &AppModel::helperErrorChanged,
                         [this] { m_shown.append(m_model->helperError().value_or(QString())); });
    }
    ~StalledScreenshots() override
    {
        if (m_hangs)
            goOn();
        m_model.reset(); // its capture reads what is below
    }

    /// From the next picture on.
    void hang()
    {
        m_recorderHeld = true;
        m_hangs = true;
    }
    void goOn()
    {
        m_hangs = false;
        m_release.count_down();
        m_recorderHeld = false;
        settle();
    }

    /// Ends the recording of the screen that hangs.
    void stopForGood()
    {
        expectStop();
        m_model->toggleRecording();
        advance(std::chrono::seconds(2));
        ASSERT_EQ(m_events, QStringList(captureFailed));
        m_events.clear();
    }
    /// The observer records; capture waits for the screen.
    void startAnew()
    {
        m_observer.expect(postStart, statusAnswer(true));
        m_model->toggleRecording();
        settle();
        m_observer.always(getStatus, statusAnswer(true));
    }

    std::atomic<bool> m_hangs = false;
    std::latch m_release{1};
    std::atomic<int> m_starts = 0; ///< of capture, after the first
    QStringList m_shown;           ///< every helper error
};

} // namespace ostrel
