#include "capture/JpegEncoder.h"

#include "support/FakeDisplaySource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <turbojpeg.h>
#include <vector>

using namespace ostrel;

namespace {

struct Decoded {
    int width = 0;
    int height = 0;
    int subsampling = -1;
    std::vector<std::uint8_t> pixels; ///< B, G, R, unused
};

Decoded decode(std::span<const std::uint8_t> jpeg)
{
    Decoded decoded;
    tjhandle decompressor = tjInitDecompress();
    int colourSpace = 0;
    EXPECT_EQ(tjDecompressHeader3(decompressor, jpeg.data(), jpeg.size(), &decoded.width, &decoded.height,
                                  &decoded.subsampling, &colourSpace),
              0);
    decoded.pixels.resize(std::size_t(decoded.width) * std::size_t(decoded.height) * 4);
    EXPECT_EQ(tjDecompress2(decompressor, jpeg.data(), jpeg.size(), decoded.pixels.data(), decoded.width, 0,
                            decoded.height, TJPF_BGRX, 0),
              0);
    tjDestroy(decompressor);
    return decoded;
}

/// The first quantisation value tells the quality: 9 at 72 (16 * (200 - 2 * 72) / 100, rounded).
int firstLuminanceQuantiser(std::span<const std::uint8_t> jpeg)
{
    for (std::size_t i = 0; i + 5 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xff && jpeg[i + 1] == 0xdb)
            return jpeg[i + 5];
    }
    return -1;
}

/// Whether the file has the marker of the baseline process, which every decoder reads.
bool isBaseline(std::span<const std::uint8_t> jpeg)
{
    for (std::size_t i = 0; i + 1 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xff && jpeg[i + 1] == 0xc0)
            return true;
    }
    return false;
}

TEST(JpegEncoder, picture_isABaselineFileOfItsSizeAtQuality72)
{
    FakePicture picture(123, 45);
    picture.fill(128);
    JpegEncoder encoder;
    const auto jpeg = encoder.makeJPEGData(picture.view());
    ASSERT_TRUE(jpeg);
    const Decoded decoded = decode(*jpeg);
    EXPECT_EQ(decoded.width, 123);
    EXPECT_EQ(decoded.height, 45);
    EXPECT_EQ(decoded.subsampling, TJSAMP_420);
    EXPECT_TRUE(isBaseline(*jpeg));
    EXPECT_EQ(firstLuminanceQuantiser(*jpeg), 9);
}

TEST(JpegEncoder, colours_areNotSwapped)
{
    FakePicture picture(16, 16);
    for (std::size_t i = 0; i < picture.bytes().size(); i += 4) {
        picture.bytes()[i] = 20;      // blue
        picture.bytes()[i + 1] = 90;  // green
        picture.bytes()[i + 2] = 200; // red
    }
    JpegEncoder encoder;
    const Decoded decoded = decode(*encoder.makeJPEGData(picture.view()));
    EXPECT_NEAR(decoded.pixels[0], 20, 6);
    EXPECT_NEAR(decoded.pixels[1], 90, 6);
    EXPECT_NEAR(decoded.pixels[2], 200, 6);
}

TEST(JpegEncoder, paddedRows_areSkipped)
{
    FakePicture padded(40, 16);
    padded.fill(255);
    for (std::size_t y = 0; y < 16; ++y)
        std::fill_n(padded.bytes().begin() + std::ptrdiff_t(y * 160), 32 * 4, std::uint8_t(60));
    FrameView view = padded.view();
    view.width = 32;
    JpegEncoder encoder;
    const Decoded decoded = decode(*encoder.makeJPEGData(view));
    EXPECT_EQ(decoded.width, 32);
    for (std::size_t i = 0; i < decoded.pixels.size(); i += 4)
        ASSERT_NEAR(decoded.pixels[i], 60, 2) << i;
}

TEST(JpegEncoder, picturesOfGrowingAndShrinkingSize_areAllWhole)
{
    JpegEncoder encoder;
    for (const int side : {8, 500, 17, 900, 1}) {
        const FakePicture picture(side, side);
        const auto jpeg = encoder.makeJPEGData(picture.view());
        ASSERT_TRUE(jpeg) << side;
        EXPECT_EQ(decode(*jpeg).width, side);
    }
}

/// What the library makes of the same picture, when it is given the pixels themselves.
std::vector<std::uint8_t> encodedByTheLibrary(const FrameView &image)
{
    const tjhandle compressor = tjInitCompress();
    unsigned char *file = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(tjCompress2(compressor, image.pixels, image.width, int(image.stride), image.height, TJPF_BGRX, &file,
                          &size, TJSAMP_420, 72, 0),
              0);
    std::vector<std::uint8_t> copy(file, file + size);
    tjFree(file);
    tjDestroy(compressor);
    return copy;
}

TEST(JpegEncoder, noiseOfEverySmallSize_isEncodedAsByTheLibraryItself)
{
    std::mt19937 random(3);
    JpegEncoder encoder;
    for (int width = 1; width <= 50; ++width) {
        for (int height = 1; height <= 50; ++height) {
            FakePicture picture(width, height);
            for (std::uint8_t &byte : picture.bytes())
                byte = std::uint8_t(random());
            const auto jpeg = encoder.makeJPEGData(picture.view());
            ASSERT_TRUE(jpeg);
            ASSERT_TRUE(std::ranges::equal(*jpeg, encodedByTheLibrary(picture.view()))) << width << "x" << height;
        }
    }
}

TEST(JpegEncoder, nothingToEncode_fails)
{
    const std::uint8_t pixel[4] = {};
    JpegEncoder encoder;
    EXPECT_FALSE(encoder.makeJPEGData({}));
    EXPECT_FALSE(encoder.makeJPEGData({pixel, 0, 1, 4}));
    EXPECT_FALSE(encoder.makeJPEGData({pixel, 1, 0, 4}));
    EXPECT_FALSE(encoder.makeJPEGData({nullptr, 1, 1, 4}));
    EXPECT_FALSE(encoder.makeJPEGData({pixel, 1, 1, -4}));
}

TEST(JpegEncoder, higherThanAJpegFileHolds_fails)
{
    const FakePicture tooHigh(1, 65'501);
    JpegEncoder encoder;
    EXPECT_FALSE(encoder.makeJPEGData(tooHigh.view()));
}

TEST(JpegEncoder, widerThanAJpegFileHolds_failsAndTheNextPictureSucceeds)
{
    const FakePicture tooWide(65'501, 1);
    const FakePicture fine(8, 8);
    JpegEncoder encoder;
    EXPECT_FALSE(encoder.makeJPEGData(tooWide.view()));
    EXPECT_TRUE(encoder.makeJPEGData(fine.view()));
}

} // namespace
