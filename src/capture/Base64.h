#pragma once

#include <QByteArray>

#include <cstdint>
#include <span>

namespace ostrel {

/// Standard base64 with padding and without line breaks; the same as QByteArray::toBase64 at several times its speed,
/// which a picture is large enough to show. Any thread.
QByteArray base64Encoded(std::span<const std::uint8_t> bytes);

} // namespace ostrel
