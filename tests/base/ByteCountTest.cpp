#include "base/ByteCount.h"

#include "support/Printers.h"

#include <limits>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

std::string text(qint64 bytes)
{
    return byteCountText(bytes).toStdString();
}

TEST(ByteCount, belowAKilobyte_isCountedInBytes)
{
    EXPECT_EQ(text(0), "0 bytes");
    EXPECT_EQ(text(1), "1 byte");
    EXPECT_EQ(text(2), "2 bytes");
    EXPECT_EQ(text(999), "999 bytes");
}

TEST(ByteCount, units_arePowersOfAThousandWithTheirDecimals)
{
    EXPECT_EQ(text(1'000), "1 KB");
    EXPECT_EQ(text(1'024), "1 KB");
    EXPECT_EQ(text(12'345), "12 KB");
    EXPECT_EQ(text(12'345'678), "12.3 MB");
    EXPECT_EQ(text(1'254'000'000), "1.25 GB");
    EXPECT_EQ(text(7'000'000'000'000), "7 TB");
    EXPECT_EQ(text(1'234'000'000'000'000), "1.23 PB");
}

TEST(ByteCount, zerosBehindThePoint_areLeftOut)
{
    EXPECT_EQ(text(12'000'000), "12 MB");
    EXPECT_EQ(text(12'010'000), "12 MB");
    EXPECT_EQ(text(1'500'000'000), "1.5 GB");
    EXPECT_EQ(text(100'000'000), "100 MB");
}

TEST(ByteCount, roundedUpToAThousand_isOneOfTheNextUnit)
{
    EXPECT_EQ(text(999'499), "999 KB");
    EXPECT_EQ(text(999'500), "1 MB");
    EXPECT_EQ(text(999'960'000), "1 GB");
}

TEST(ByteCount, extremes_haveATextToo)
{
    EXPECT_EQ(text(std::numeric_limits<qint64>::max()), "9.22 EB");
    EXPECT_EQ(text(std::numeric_limits<qint64>::min()), "-9.22 EB");
    EXPECT_EQ(text(-5), "-5 bytes");
}

} // namespace
