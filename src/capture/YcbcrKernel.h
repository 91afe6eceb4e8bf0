#pragma once

#include <cstdint>

namespace ostrel {

/// Two rows of a picture, pixels as of a FrameView. The lower one may be the upper one again.
struct RowPair {
    const std::uint8_t *upper;
    const std::uint8_t *lower;
};

/// Where two rows of a picture go as JPEG keeps them with half of the colour each way.
struct YcbcrRows {
    std::uint8_t *upperLuma; ///< a number for each pixel
    std::uint8_t *lowerLuma;
    std::uint8_t *blueness; ///< a number for two pixels of both rows
    std::uint8_t *redness;
};

/// Rows get as long as a multiple of this: the last pixel goes on beyond the picture.
constexpr int ycbcrColumns = 32;

constexpr int paddedToYcbcrColumns(int width)
{
    return (width + ycbcrColumns - 1) / ycbcrColumns * ycbcrColumns;
}

/// Converts two rows with the widest vector instructions that the machine has, to the very numbers that libjpeg comes
/// to. Reads width * 4 bytes of each row and not one more.
/// @param next  what is converted next, or the same again: it is fetched from memory meanwhile, which else would take
///              as long as the conversion
/// @param width in pixels, at least 1
void convertToYcbcr(const RowPair &rows, const RowPair &next, int width, const YcbcrRows &to);

} // namespace ostrel
