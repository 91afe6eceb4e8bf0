#pragma once

#include "capture/DisplaySource.h"
#include "platform/pixels/PixelConversion.h"

#include <QSize>

#include <spa/pod/pod.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

/// What is said to producers of pictures, and read from them, about the form of pictures.
namespace ostrel::PictureFormats {

/// A form that producer and consumer have agreed on.
struct Agreed {
    QSize size; ///< pixels in memory
    bool redFirst = false;
    bool isGraphicsMemory = false; ///< DMA-BUF, laid out in rows
};

/// Things that are said together, with the memory that they lie in.
class Words
{
public:
    std::vector<const spa_pod *> all;
    std::array<std::byte, 4096> memory{};
};

/// Writes which forms we take: four bytes a pixel in ordinary memory, or else in graphics memory that is laid out in
/// rows. For the other end there is no use in more pictures than are wanted; a source that knows whole numbers only is
/// asked for one a second at the least.
/// @param words is where they are written; must not be moved
void writeOffer(const DisplayCaptureConfiguration &configuration, Words &words);

/// Writes in what memory pictures of the agreed form are wanted, and what is to be told with each.
void writeWishes(const Agreed &agreed, Words &words);

/// Absent for what isn't a form of those that we take.
std::optional<Agreed> agreedFormat(const spa_pod *format);

/// The size of the pictures that a producer offers in this form. Absent when it has several.
std::optional<QSize> offeredSize(const spa_pod *format);

} // namespace ostrel::PictureFormats
