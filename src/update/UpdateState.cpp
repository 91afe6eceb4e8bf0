#include "update/UpdateState.h"

#include "base/ByteCount.h"

namespace ostrel {

namespace {

QString foundWords(const UpdateState &state)
{
    QString found = QStringLiteral("Version %1 is available.").arg(state.version);
    if (state.installsItself)
        return found;
    return found + QStringLiteral(" Install it the way this version was installed, for instance with the package "
                                  "manager.");
}

} // namespace

QString updateWords(const UpdateState &state)
{
    switch (state.phase) {
    case UpdateState::Phase::Idle:
        return QStringLiteral("No update was looked for yet.");
    case UpdateState::Phase::Checking:
        return QStringLiteral("Looking for a newer version.");
    case UpdateState::Phase::UpToDate:
        return QStringLiteral("There is no newer version.");
    case UpdateState::Phase::Found:
        return foundWords(state);
    case UpdateState::Phase::Downloading:
        return QStringLiteral("Downloading version %1: %2 of %3.")
            .arg(state.version, byteCountText(state.receivedBytes), byteCountText(state.totalBytes));
    case UpdateState::Phase::Unpacking:
        return QStringLiteral("Verifying and unpacking version %1.").arg(state.version);
    case UpdateState::Phase::Ready:
        return QStringLiteral("Version %1 is ready. It is installed when the program quits.").arg(state.version);
    case UpdateState::Phase::Failed:
        return state.error ? state.error->localizedDescription : QString();
    }
    return {};
}

} // namespace ostrel
