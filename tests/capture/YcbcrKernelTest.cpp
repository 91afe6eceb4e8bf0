#include "capture/YcbcrKernel.h"

#include "support/EveryTarget.h"
#include "support/GuardedBytes.h"

#include <cstring>
#include <functional>
#include <random>
#include <turbojpeg.h>
#include <vector>

using namespace ostrel;

namespace {

/// Two rows of luma and one of each colour.
struct Converted {
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> blueness;
    std::vector<std::uint8_t> redness;

    bool operator==(const Converted &) const = default;
};

/// Two rows of pixels, the lower one of which ends where memory ends.
class GuardedRows
{
public:
    /// @param makePixel B, G, R and anything
    GuardedRows(int width, const std::function<std::uint32_t()> &makePixel)
        : m_width(width), m_bytes(std::size_t(width) * 8)
    {
        for (std::size_t i = 0; i < std::size_t(width) * 8; i += 4) {
            const std::uint32_t pixel = makePixel();
            std::memcpy(m_bytes.data() + i, &pixel, 4);
        }
    }

    RowPair pair() const { return {.upper = pixels(), .lower = pixels() + std::ptrdiff_t(m_width) * 4}; }

    /// As the library does it, whose rows end with the last pair of columns.
    Converted byTheLibrary() const
    {
        Converted converted{.luma = std::vector<std::uint8_t>(2 * evenWidth()),
                            .blueness = std::vector<std::uint8_t>(evenWidth() / 2),
                            .redness = std::vector<std::uint8_t>(evenWidth() / 2)};
        unsigned char *planes[] = {converted.luma.data(), converted.blueness.data(), converted.redness.data()};
        const tjhandle compressor = tjInitCompress();
        EXPECT_EQ(tjEncodeYUVPlanes(compressor, pixels(), m_width, 0, 2, TJPF_BGRX, planes, nullptr, TJSAMP_420, 0), 0);
        tjDestroy(compressor);
        return converted;
    }

    Converted byTheKernel(const RowPair &next) const
    {
        const auto padded = std::size_t(paddedToYcbcrColumns(m_width));
        std::vector<std::uint8_t> upper(padded), lower(padded), blueness(padded / 2), redness(padded / 2);
        convertToYcbcr(pair(), next, m_width,
                       {.upperLuma = upper.data(),
                        .lowerLuma = lower.data(),
                        .blueness = blueness.data(),
                        .redness = redness.data()});
        for (std::size_t x = std::size_t(m_width); x < padded; ++x)
            EXPECT_EQ(upper[x], upper[std::size_t(m_width) - 1]) << "beyond the last pixel, at " << x;
        upper.resize(evenWidth());
        upper.insert(upper.end(), lower.begin(), lower.begin() + std::ptrdiff_t(evenWidth()));
        blueness.resize(evenWidth() / 2);
        redness.resize(evenWidth() / 2);
        return {.luma = upper, .blueness = blueness, .redness = redness};
    }

private:
    std::size_t evenWidth() const { return (std::size_t(m_width) + 1) / 2 * 2; }
    std::uint8_t *pixels() const { return reinterpret_cast<std::uint8_t *>(m_bytes.data()); }

    int m_width;
    GuardedBytes m_bytes;
};

class YcbcrKernelOnEveryTarget : public EveryTarget
{
protected:
    std::mt19937 m_random{20'261'121};
};

INSTANTIATE_TEST_SUITE_P(Machine, YcbcrKernelOnEveryTarget, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         &EveryTarget::name);

TEST_P(YcbcrKernelOnEveryTarget, noiseOfEveryWidthUpTo200_equalsTheLibrarys)
{
    for (int width = 1; width <= 200; ++width) {
        const GuardedRows rows(width, [this] { return m_random(); });
        ASSERT_EQ(rows.byTheKernel(rows.pair()), rows.byTheLibrary()) << width;
    }
}

TEST_P(YcbcrKernelOnEveryTarget, extremeColours_equalTheLibrarys)
{
    const auto pure = [this] { return (m_random() & 0x0101'0101) * 255; };
    const GuardedRows rows(4'096, pure);
    EXPECT_EQ(rows.byTheKernel(rows.pair()), rows.byTheLibrary());
}

TEST_P(YcbcrKernelOnEveryTarget, rowsThatComeNext_areNotNeeded)
{
    const GuardedRows rows(100, [this] { return m_random(); });
    const GuardedRows other(100, [this] { return m_random(); });
    EXPECT_EQ(rows.byTheKernel(other.pair()), rows.byTheLibrary());
}

} // namespace
