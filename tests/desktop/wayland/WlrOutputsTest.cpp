#include "WaylandCaptureFixture.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t firstColour = 0x336699;

class WlrOutputs : public WaylandCapture
{
protected:
    /// Whether a picture shows this colour alone.
    static bool isPlain(DisplayScreenshotter &screenshotter, QSize size)
    {
        const auto taken = screenshotter.capture();
        return taken && *taken && WaylandPicture::of(**taken) == WaylandPicture::plain(size, firstColour);
    }

    CapturableDisplay toldOf(qsizetype output)
    {
        const auto content = m_source.shareableContent();
        if (!content)
            failTest(content.error().localizedDescription);
        for (const CapturableDisplay &display : content->displays) {
            if (display.displayId == idOf(output))
                return display;
        }
        return {};
    }
};

TEST_F(WlrOutputs, fractionalScale_keepsThePixelsAndDividesThePlace)
{
    m_desktop.command(QStringLiteral("output HEADLESS-1 scale 1.25"));
    waitUntil(QStringLiteral("the scale"), 10s, [&] { return toldOf(0).bounds.size() == QSizeF(256, 192); });
    const CapturableDisplay display = toldOf(0);
    EXPECT_EQ(QSize(int(display.width), int(display.height)), firstSize);
    const auto screenshotter = opened(0);
    waitUntil(QStringLiteral("the picture"), 20s, [&] { return isPlain(*screenshotter, firstSize); });
}

TEST_F(WlrOutputs, everyTransform_isSeenUpright)
{
    for (const char *transform : {"180", "270", "flipped", "flipped-90", "flipped-180", "flipped-270"}) {
        const QString words = QString::fromLatin1(transform);
        m_desktop.command(QStringLiteral("output HEADLESS-1 transform %1").arg(words));
        const bool isOnItsSide = words.endsWith(QStringLiteral("90")) || words.endsWith(QStringLiteral("270"));
        const QSize size = isOnItsSide ? firstSize.transposed() : firstSize;
        waitUntil(QStringLiteral("the output to turn"), 10s,
                  [&] { return toldOf(0).width == size.width() && toldOf(0).height == size.height(); });
        const auto screenshotter = opened(0);
        waitUntil(words, 20s, [&] { return isPlain(*screenshotter, size); });
    }
}

} // namespace
