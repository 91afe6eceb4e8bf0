#pragma once

#include <QByteArray>

#include <chrono>

namespace ostrel {

/// Whether the X server of this machine that a display name leads to says anything when it is spoken to. xcb waits for
/// a frozen one without end, and there is nothing to wake it with. For displays elsewhere, and where nobody listens,
/// the answer is yes: connecting fails by itself then.
/// @param display  as in $DISPLAY; empty means that $DISPLAY decides
/// @param patience how long to wait for an answer
bool isServerAnswering(const QByteArray &display, std::chrono::milliseconds patience);

} // namespace ostrel
