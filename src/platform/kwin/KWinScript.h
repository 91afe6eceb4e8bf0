#pragma once

#include <QByteArray>

namespace ostrel {

/// The object on our connection that the script calls.
namespace KWinListener {
constexpr const char *path = "/com/tamsk/ostrel/KWinWindows";
constexpr const char *interface = "com.tamsk.ostrel.KWinWindows1";
constexpr const char *method = "Tell";
} // namespace KWinListener

/// The program that runs within KWin: it tells all windows and monitors, at once and after every change, as JSON that
/// `kwinNewsIn` reads; what that does not read where it can't tell them. It unloads itself when a window comes and the
/// listener is no longer on the bus, as after a crash. For KWin 5.27 and 6.
/// @param listener the unique name of a connection
/// @param name by which the script is loaded
QByteArray kwinScript(const QByteArray &listener, const QByteArray &name);

} // namespace ostrel
