#include "base/Fault.h"

#include <cerrno>
#include <cstring>

namespace ostrel {

namespace {

QString sentence(Fault fault, const QString &detail)
{
    switch (fault) {
    case Fault::Cancelled:
        return QStringLiteral("The operation was cancelled.");
    case Fault::BadUrl:
        return QStringLiteral("The address \"%1\" is not a valid URL.").arg(detail);
    case Fault::BadServerResponse:
        return QStringLiteral("The server gave an answer that could not be used.");
    case Fault::ConnectionRefused:
        return QStringLiteral("Could not connect to the server.");
    case Fault::ConnectionClosed:
        return QStringLiteral("The server closed the connection before it had answered.");
    case Fault::TimedOut:
        return QStringLiteral("The %1 took too long to answer.")
            .arg(detail.isEmpty() ? QStringLiteral("server") : detail);
    case Fault::PortTaken:
        return QStringLiteral("Port %1 is in use by another program").arg(detail);
    case Fault::NetworkFailed:
        return QStringLiteral("The connection to the server failed: %1").arg(detail);
    case Fault::UndecodableAnswer:
        return QStringLiteral("The data could not be understood: %1").arg(detail);
    case Fault::NoSuchProgram:
        return QStringLiteral("The program \"%1\" was not found. Install it, or add its folder to PATH.").arg(detail);
    case Fault::NoSuchFile:
        return QStringLiteral("\"%1\" does not exist.").arg(detail);
    case Fault::PermissionDenied:
        return QStringLiteral("There is no permission to use \"%1\".").arg(detail);
    case Fault::DiskFull:
        return QStringLiteral("The disk that holds \"%1\" is full.").arg(detail);
    case Fault::ReadOnlyFileSystem:
        return QStringLiteral("\"%1\" lies on a file system that can only be read.").arg(detail);
    case Fault::IsDirectory:
        return QStringLiteral("\"%1\" is a folder; a file was expected there.").arg(detail);
    case Fault::FileFailed:
        return QStringLiteral("A file could not be used: %1").arg(detail);
    case Fault::NoXDisplay:
        return QStringLiteral("No X display can be reached (%1). Start this in a graphical session, or set DISPLAY to "
                              "a display that you may use.")
            .arg(detail);
    case Fault::NoWaylandDisplay:
        return QStringLiteral("No Wayland display can be reached (%1). Start this in a graphical session, or set "
                              "WAYLAND_DISPLAY to a display that you may use.")
            .arg(detail);
    case Fault::NoWaylandToolkit:
        return QStringLiteral("The panel can't be shown: no X display can be reached, and Qt's plugin for Wayland is "
                              "missing. Install it (qt6-wayland on Debian, qt6-qtwayland on Fedora), or have your "
                              "compositor start XWayland.");
    case Fault::NoScreencopy:
        return QStringLiteral("This Wayland session's compositor does not let programs take pictures of the screen. "
                              "Sway and others that offer wlr-screencopy do: log in with one of them, or with an X11 "
                              "session, to record.");
    case Fault::ScreenFormatUnsupported:
        return QStringLiteral("The screen's colours come in a form that cannot be recorded (%1). Set the screen to a "
                              "colour depth of 24.")
            .arg(detail);
    case Fault::DisplayGone:
        return QStringLiteral("The display \"%1\" is not connected any more.").arg(detail);
    case Fault::DisplayResized:
        return QStringLiteral("The display \"%1\" has changed its size.").arg(detail);
    case Fault::PictureRefused:
        return QStringLiteral("The screen gave no picture of itself (%1).").arg(detail);
    case Fault::NoScreenPortal:
        return QStringLiteral("The screen of this Wayland session is recorded through the desktop portal, which can't "
                              "be used (%1). Install xdg-desktop-portal and the part of it that belongs to this "
                              "desktop, or log in with sway or with an X11 session.")
            .arg(detail);
    case Fault::ScreenCaptureDeclined:
        return QStringLiteral("The desktop was told not to let the screen be recorded. Allow it under \"Screen "
                              "Recording\", or with \"ostrel permissions allow screenRecording\".");
    case Fault::ScreenSharingEnded:
        return QStringLiteral("The desktop has ended the sharing of the screen. Allow it again under \"Screen "
                              "Recording\", or start another recording with \"ostrel record\".");
    case Fault::ScreenQuestionUnanswered:
        return QStringLiteral("Nobody answered the desktop's question whether the screen may be recorded. It is asked "
                              "again by a recording that is started half a minute later.");
    case Fault::PictureStreamEnded:
        return QStringLiteral("The desktop sends no more pictures of the screen (%1).").arg(detail);
    case Fault::KeyringUnavailable:
        return QStringLiteral("The keyring could not be used: %1").arg(detail);
    case Fault::ProgramFailedToStart:
        return QStringLiteral("A program could not be started: %1").arg(detail);
    }
    return {};
}

} // namespace

QString faultDomain()
{
    return QStringLiteral("TamskOstrel.Fault");
}

Error faultError(Fault fault, const QString &detail)
{
    return {.domain = faultDomain(), .code = int(fault), .localizedDescription = sentence(fault, detail)};
}

bool isFault(const Error &error, Fault fault)
{
    return error.code == int(fault) && error.domain == faultDomain();
}

Error fileError(int errorNumber, const QString &path)
{
    switch (errorNumber) {
    case ENOENT:
    case ENOTDIR:
        return faultError(Fault::NoSuchFile, path);
    case EACCES:
    case EPERM:
        return faultError(Fault::PermissionDenied, path);
    case ENOSPC:
    case EDQUOT:
        return faultError(Fault::DiskFull, path);
    case EROFS:
        return faultError(Fault::ReadOnlyFileSystem, path);
    case EISDIR:
        return faultError(Fault::IsDirectory, path);
    default:
        return faultError(Fault::FileFailed,
                          QStringLiteral("%1 (%2)").arg(path, QString::fromLocal8Bit(std::strerror(errorNumber))));
    }
}

} // namespace ostrel
