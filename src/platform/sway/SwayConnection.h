#pragma once

#include <QByteArray>

#include <chrono>
#include <optional>

namespace ostrel {

/// What can be asked of sway.
enum class SwayQuestion : quint32 { Tree = 4 };

/// A question to sway over its socket, on a connection of its own: it costs a tenth of a millisecond, and nothing that
/// a late answer to an earlier question could be taken for is ever on it.
/// @param socketPath as in $SWAYSOCK
/// @param atMost     for all of it; a sway that hangs does not keep anybody longer
/// @return JSON, not looked at yet; absent when sway is not there, too slow, answers something else, or more than 16 MB
std::optional<QByteArray> askSway(const QByteArray &socketPath, SwayQuestion question,
                                  std::chrono::milliseconds atMost);

} // namespace ostrel
