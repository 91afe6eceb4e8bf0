#pragma once

#include <QLoggingCategory>

/// Every log category of the program. Switch one on with QT_LOGGING_RULES="<name>.info=true".
namespace ostrel {

/// Progress (info) and failures (critical) of the capture pipeline. Name: com.tamsk.ostrel.ScreenCaptureRecorder
Q_DECLARE_LOGGING_CATEGORY(logScreenCapture)
/// The observer process and the calls to it. Name: com.tamsk.ostrel.Observer
Q_DECLARE_LOGGING_CATEGORY(logObserver)
/// The desktop's own services: window system, bus, keyring. Name: com.tamsk.ostrel.Platform
Q_DECLARE_LOGGING_CATEGORY(logPlatform)
/// Searches for newer versions. Name: com.tamsk.ostrel.Update
Q_DECLARE_LOGGING_CATEGORY(logUpdate)
/// Tasks and queues. Name: com.tamsk.ostrel.Tasks
Q_DECLARE_LOGGING_CATEGORY(logTasks)

} // namespace ostrel
