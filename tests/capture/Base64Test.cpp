#include "capture/Base64.h"

#include "EveryTarget.h"
#include "support/Printers.h"

#include <random>
#include <vector>

using namespace ostrel;

namespace {

class Base64 : public EveryTarget
{
protected:
    static void expectSameAsQt(const std::vector<std::uint8_t> &bytes)
    {
        const QByteArray expected(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
        ASSERT_EQ(base64Encoded(bytes), expected.toBase64()) << bytes.size();
    }
};

INSTANTIATE_TEST_SUITE_P(Machine, Base64, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()), &EveryTarget::name);

TEST_P(Base64, everyLengthUpTo300_isTheSameAsQts)
{
    std::mt19937 random(1);
    std::vector<std::uint8_t> bytes;
    for (int length = 0; length <= 300; ++length) {
        expectSameAsQt(bytes);
        bytes.push_back(std::uint8_t(random()));
    }
}

TEST_P(Base64, everyCharacterInEveryPlace_isTheSameAsQts)
{
    for (unsigned value = 0; value < 64; ++value) {
        std::vector<std::uint8_t> bytes;
        for (int group = 0; group < 16; ++group) {
            const unsigned bits = value << 18 | value << 12 | value << 6 | value;
            bytes.insert(bytes.end(), {std::uint8_t(bits >> 16), std::uint8_t(bits >> 8), std::uint8_t(bits)});
        }
        expectSameAsQt(bytes);
    }
}

TEST_P(Base64, aMegabyteOfNoise_isTheSameAsQts)
{
    std::mt19937 random(2);
    std::vector<std::uint8_t> bytes(1'000'001);
    for (std::uint8_t &byte : bytes)
        byte = std::uint8_t(random());
    expectSameAsQt(bytes);
}

} // namespace
