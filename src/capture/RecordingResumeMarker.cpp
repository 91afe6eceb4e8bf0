#include "capture/RecordingResumeMarker.h"

#include "base/Files.h"
#include "base/Paths.h"

#include <QFile>
#include <QFileInfo>

namespace ostrel {

namespace {

QString markerFile()
{
    return stateDirectory() + QStringLiteral("/resume-recording");
}

} // namespace

void RecordingResumeMarker::write()
{
    static_cast<void>(writeFileAtomically(markerFile(), {}));
}

bool RecordingResumeMarker::consume()
{
    const QString marker = markerFile();
    if (!QFileInfo(marker).isFile())
        return false;
    QFile::remove(marker);
    return true;
}

} // namespace ostrel
