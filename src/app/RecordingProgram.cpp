#include "app/RecordingProgram.h"

#include "app/CommandLine.h"
#include "base/Log.h"
#include "context/PrivacyRulesFile.h"

#include <unistd.h>

namespace ostrel {

Result<RecorderLock> beginRecordingProgram()
{
    auto lock = RecorderLock::acquire();
    if (!lock)
        return lock;
    if (const auto made = PrivacyRulesFile::makeIfMissing(); !made)
        qCWarning(logScreenCapture, "the privacy rules could not be written for you to change: %s",
                  qUtf8Printable(made.error().localizedDescription));
    return lock;
}

void endAtOnce()
{
    printMessage(QStringLiteral("ostrel: ended at once; frames not yet sent to the observer are lost\n"));
    ::_exit(ExitFailed);
}

} // namespace ostrel
