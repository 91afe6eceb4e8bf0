#include "observer/Base64.h"

#include "support/EveryTarget.h"
#include "support/GuardedBytes.h"
#include "support/Printers.h"

#include <random>

using namespace ostrel;

namespace {

class Base64 : public EveryTarget
{
protected:
    QByteArray noise(qsizetype size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        for (char &byte : bytes)
            byte = char(m_random());
        return bytes;
    }

    static QByteArray encoded(QByteArrayView bytes)
    {
        QByteArray text;
        appendBase64(text, bytes);
        return text;
    }

private:
    std::mt19937 m_random{1};
};

INSTANTIATE_TEST_SUITE_P(Machine, Base64, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()), &EveryTarget::name);

TEST_P(Base64, everyLengthUpTo300AtAPagesEnd_isTheSameAsQtsAndReadsNoFurther)
{
    for (qsizetype length = 0; length <= 300; ++length) {
        const QByteArray bytes = noise(length);
        const GuardedBytes guarded(bytes);
        ASSERT_EQ(encoded(guarded.view()), bytes.toBase64()) << length;
    }
}

TEST_P(Base64, everyAlignment_isTheSame)
{
    const QByteArray bytes = noise(400);
    for (qsizetype offset = 0; offset < 64; ++offset)
        ASSERT_EQ(encoded(QByteArrayView(bytes).sliced(offset)), bytes.sliced(offset).toBase64()) << offset;
}

TEST_P(Base64, everyCharacterInEveryPlace_isTheSameAsQts)
{
    for (unsigned value = 0; value < 64; ++value) {
        QByteArray bytes;
        for (int group = 0; group < 16; ++group) {
            const unsigned bits = value << 18 | value << 12 | value << 6 | value;
            for (const unsigned shift : {16, 8, 0})
                bytes += char(bits >> shift);
        }
        ASSERT_EQ(encoded(bytes), bytes.toBase64()) << value;
    }
}

TEST_P(Base64, aMegabyteOfNoise_isTheSameAsQts)
{
    const QByteArray bytes = noise(1'000'001);
    EXPECT_TRUE(encoded(bytes) == bytes.toBase64());
}

TEST_P(Base64, whatIsThereAlready_staysBeforeIt)
{
    QByteArray text("before:");
    appendBase64(text, QByteArrayView("abc"));
    EXPECT_EQ(text, QByteArray("before:YWJj"));
}

TEST_P(Base64, piecesOfWholeThrees_makeTheSameTextAsTheWhole)
{
    const QByteArray bytes = noise(1'000);
    QByteArray text;
    for (qsizetype begin = 0, size = 3; begin < bytes.size(); begin += size, size += 3)
        appendBase64(text, QByteArrayView(bytes).sliced(begin, std::min(size, bytes.size() - begin)));
    EXPECT_EQ(text, bytes.toBase64());
    EXPECT_EQ(text.size(), base64Size(bytes.size()));
}

} // namespace
