#pragma once

#include "observer/ObserverSettings.h"
#include "observer/WireRecords.h"

#include <QString>
#include <optional>

namespace ostrel {

/// The line under the record button, and how it is drawn.
struct RecorderSubtext {
    enum class Kind { HelperError, BackfillNotice, ObserverError, OutputDirectory };

    QString text;
    Kind kind = Kind::OutputDirectory;

    bool isError() const { return kind == Kind::HelperError || kind == Kind::ObserverError; }
    bool isBackfillNotice() const { return kind == Kind::BackfillNotice; }
    bool operator==(const RecorderSubtext &) const = default;
};

/// The texts that the popover derives from the model's state. Plain functions of their arguments.
namespace StatusTexts {

/// @param restartPending recording begins again as soon as the stop under way is done
QString recordButtonTitle(bool recording, bool restartPending);
/// An empty message is none.
std::optional<QString> visibleHelperError(const std::optional<QString> &helperError);
/// What keeps finished recordings from being analysed, if anything does.
std::optional<QString> analysisBackfillNotice(const std::optional<ObserverStatus> &status);
/// What needs attention first; with nothing to say, where the journal goes, with "~" for the home folder.
RecorderSubtext recorderSubtext(const std::optional<QString> &helperError, const std::optional<ObserverStatus> &status,
                                const ObserverSettings &settings);
std::optional<QString> recordingProviderIndicatorText(const ObserverSettings &settings);
/// Where pictures are analysed, and by which right; of the settings being edited.
QString byokInferenceStatusText(const ObserverSettings &draft);
QString byokInferenceDetailText(const ObserverSettings &draft);
/// @param key of the setting whose secret stays where it is
QString secretNotRemoved(const QString &key);
/// What it means for a recording that its end could not be waited for.
QString lastPicturesNotDelivered();
/// A recording has ended without waiting for its capture, which hung.
QString captureDidNotAnswer();
/// What it means for a recording that the observer's process is gone: what is lost and what is not.
QString observerEnded();

} // namespace StatusTexts

} // namespace ostrel
