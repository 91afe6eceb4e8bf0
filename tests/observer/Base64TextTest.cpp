#include "observer/Base64Text.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(Base64Text, textInBase64_isHeldAsItsBytes)
{
    const Base64Text text = Base64Text::ofText("/9j/4A==");
    EXPECT_EQ(text.bytes(), QByteArray("\xff\xd8\xff\xe0"));
    EXPECT_EQ(text.otherText(), QByteArray());
    EXPECT_EQ(text, Base64Text::ofBytes("\xff\xd8\xff\xe0"));
}

TEST(Base64Text, everyText_readsBackTheSame)
{
    for (const char *text : {"", "AAAA", "AA==", "/9j/4A==", "not base64", "AAA", "AA=", "AB==", "AA==AA==", "AAAA\n",
                             "_-_-", "=", "\xc3\xa9 \"q\""})
        EXPECT_EQ(Base64Text::ofText(text).text(), QByteArray(text));
}

TEST(Base64Text, textThatWeWouldWriteOtherwise_isNotTakenForItsBytes)
{
    // "AB==" decodes to the byte that "AA==" is the text of.
    const Base64Text text = Base64Text::ofText("AB==");
    EXPECT_EQ(text.bytes(), QByteArray());
    EXPECT_NE(text, Base64Text::ofText("AA=="));
}

TEST(Base64Text, copies_shareTheBytes)
{
    const Base64Text text = Base64Text::ofBytes(QByteArray(1000, 'x'));
    const Base64Text copy = text; // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.bytes().constData(), text.bytes().constData());
}

} // namespace
