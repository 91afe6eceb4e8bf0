#pragma once

#include <cstdint>
#include <optional>
#include <span>

/// Tells a picture that has changed from the noise of one that has not.
namespace ostrel::FrameChangeDetector {

/// Whether any pixel's red, green or blue differs by 3 levels or more. Without a previous thumbnail, or with one of
/// another size, it has changed; alpha doesn't count. Any thread.
/// @param current  RGBA, 8 bits a channel
/// @param previous the same of the last frame that was sent
bool hasMeaningfulChange(std::span<const std::uint8_t> current, std::optional<std::span<const std::uint8_t>> previous);

} // namespace ostrel::FrameChangeDetector
