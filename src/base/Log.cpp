#include "base/Log.h"

namespace ostrel {

// Info is off unless asked for: a flush every 20 seconds would fill the user's terminal and journal.
Q_LOGGING_CATEGORY(logScreenCapture, "com.tamsk.ostrel.ScreenCaptureRecorder", QtWarningMsg)
Q_LOGGING_CATEGORY(logObserver, "com.tamsk.ostrel.Observer", QtWarningMsg)
Q_LOGGING_CATEGORY(logPlatform, "com.tamsk.ostrel.Platform", QtWarningMsg)
Q_LOGGING_CATEGORY(logUpdate, "com.tamsk.ostrel.Update", QtWarningMsg)
Q_LOGGING_CATEGORY(logTasks, "com.tamsk.ostrel.Tasks", QtWarningMsg)

} // namespace ostrel
