#include "app/RecordingProgram.h"

#include "app/CommandLine.h"
#include "base/Log.h"
#include "context/PrivacyRulesFile.h"

#include <QFile>
#include <array>
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

void endWithoutCapture(qint64 lostFrames, int status)
{
    printMessage(QStringLiteral("ostrel: the screen does not answer; ended without waiting for it\n"));
    if (lostFrames > 0)
        printMessage(QStringLiteral("ostrel: frames not yet sent to the observer are lost\n"));
    ::_exit(lostFrames > 0 ? ExitFailed : status);
}

void becomeProgram(const QString &program)
{
    QByteArray path = QFile::encodeName(program);
    std::array<char *, 2> arguments{path.data(), nullptr};
    ::execv(path.constData(), arguments.data());
    printMessage(QStringLiteral("ostrel: The new version at %1 could not be started.\n").arg(program));
}

} // namespace ostrel
