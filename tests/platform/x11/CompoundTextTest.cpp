#include "platform/x11/foreground/CompoundText.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

namespace ostrel {
namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

TEST(CompoundText, withoutSwitches_isLatin1)
{
    EXPECT_EQ(decodeCompoundText("caf\xe9"), text("caf\u00e9"));
    EXPECT_EQ(decodeCompoundText(""), QString());
}

TEST(CompoundText, cyrillicPassage_isDecoded)
{
    EXPECT_EQ(decodeCompoundText("a \x1b-L\xbf\xe0\xd8\xd2\xd5\xe2 b"),
              text("a \u041f\u0440\u0438\u0432\u0435\u0442 b"));
}

TEST(CompoundText, japanesePassage_isDecodedAndEnds)
{
    EXPECT_EQ(decodeCompoundText("a\x1b$(B\x46\x7c\x4b\x5c\x1b(Bb"), text("a\u65e5\u672c"
                                                                          "b"));
    EXPECT_EQ(decodeCompoundText("\x1b$)B\xc6\xfc\xcb\xdc"), text("\u65e5\u672c"));
}

TEST(CompoundText, utf8Passage_isDecodedAndEnds)
{
    EXPECT_EQ(decodeCompoundText("a\x1b%G\xf0\x9f\x98\x80\x1b%@\xe9"), text("a\U0001F600\u00e9"));
    EXPECT_EQ(decodeCompoundText("a\x1b%G\xe2\x82\xac"), text("a\u20ac"));
}

TEST(CompoundText, unknownSet_leavesItsPassageOut)
{
    EXPECT_EQ(decodeCompoundText("a\x1b-Zxyz\x1b-A"
                                 "b"),
              text("ab"));
    EXPECT_EQ(decodeCompoundText(QByteArray("a\x1b%/1\x80\x88koi8-r\x02xyz\x1b(Bb")), text("ab"));
}

TEST(CompoundText, cutOffSwitch_endsTheText)
{
    EXPECT_EQ(decodeCompoundText("a\x1b"), text("a"));
    EXPECT_EQ(decodeCompoundText("a\x1b$("), text("a"));
    EXPECT_EQ(decodeCompoundText("a\x1b%G"), text("a"));
    EXPECT_EQ(decodeCompoundText("a\x1b$(B\x46"), text("a"));
}

} // namespace
} // namespace ostrel
