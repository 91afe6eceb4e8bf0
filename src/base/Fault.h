#pragma once

#include "base/Error.h"

#include <QString>

namespace ostrel {

/// The failures whose words are ours, in one table, so that the same thing is never said in two ways.
enum class Fault {
    Cancelled,
    BadUrl,
    BadServerResponse,
    ConnectionRefused,
    ConnectionClosed,
    TimedOut,
    PortTaken,
    NetworkFailed,
    UndecodableAnswer,
    NoSuchProgram,
    NoSuchFile,
    PermissionDenied,
    DiskFull,
    ReadOnlyFileSystem,
    IsDirectory,
    FileFailed,
    NoXDisplay,
    NoWaylandDisplay,
    NoWaylandToolkit,
    NoScreencopy,
    ScreenFormatUnsupported,
    DisplayGone,
    DisplayResized,
    PictureRefused,
    NoScreenPortal,
    ScreenCaptureDeclined,
    ScreenSharingEnded,
    ScreenQuestionUnanswered,
    PictureStreamEnded,
    KeyringUnavailable,
    ProgramFailedToStart,
};

/// The domain of every error that `faultError` makes; its code is the `Fault`.
QString faultDomain();

/// The error for a fault. `detail` is the one thing that its sentence names: a path, a port, a program, or the
/// foreign text of a failure that has no words of its own; faults that name nothing ignore it.
Error faultError(Fault fault, const QString &detail = {});

/// True when the error is of our own table and of that kind.
bool isFault(const Error &error, Fault fault);

/// The fault behind a failed system call on a file.
/// @param errorNumber the value of errno right after the call
/// @param path        what was to be read or written
Error fileError(int errorNumber, const QString &path);

} // namespace ostrel
