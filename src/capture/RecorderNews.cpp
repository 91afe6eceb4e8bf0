#include "capture/RecorderNews.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace ostrel {

void RecorderNews::publish(std::function<void(const ScreenCaptureRecorder &)> call)
{
    // By way of the application object: a receiver of our own would be destroyed within its own event by a callback
    // that destroys the recorder.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [weak = weak_from_this(), call = std::move(call)] {
            if (const auto news = weak.lock(); news && news->m_recorder)
                call(*news->m_recorder);
        },
        Qt::QueuedConnection);
}

void RecorderNews::tellThatStreamsDied(const QString &message)
{
    publish([message](const ScreenCaptureRecorder &recorder) {
        if (const auto call = recorder.onStreamsDied ? recorder.onStreamsDied : recorder.onError)
            call(message);
    });
}

// The sample queue has no part in the ownership, or the last reference could go there, and the mailbox with it.

CaptureSources::StreamsDied RecorderNews::streamsDiedOutlet()
{
    return [home = &m_home, weak = weak_from_this()](const QString &message) {
        home->post([weak, message] {
            if (const auto news = weak.lock())
                news->tellThatStreamsDied(message);
        });
    };
}

CaptureSources::DisplaysChanged RecorderNews::displaysChangedOutlet()
{
    return [home = &m_home, weak = weak_from_this()] {
        home->post([weak] {
            if (const auto news = weak.lock())
                news->tell(&ScreenCaptureRecorder::onDisplaysChanged);
        });
    };
}

} // namespace ostrel
