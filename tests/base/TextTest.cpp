#include "base/Text.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

TEST(Text, blanks_areSpacesAndTab_notNewlines)
{
    for (const char16_t c : {u' ', u'\t', u'\u00a0', u'\u2003', u'\u3000'}) {
        EXPECT_TRUE(isBlank(c)) << int(c);
        EXPECT_FALSE(isNewline(c)) << int(c);
    }
}

TEST(Text, newlines_areTheEightLineBreaks)
{
    for (const char16_t c : {u'\n', u'\v', u'\f', u'\r', u'\x85', u'\u2028', u'\u2029'}) {
        EXPECT_TRUE(isNewline(c)) << int(c);
        EXPECT_FALSE(isBlank(c)) << int(c);
    }
    // Qt counts these as space; they are neither.
    for (const char16_t c : {u'\x1c', u'\u200b', u'\0'}) {
        EXPECT_FALSE(isNewline(c) || isBlank(c)) << int(c);
    }
}

TEST(Text, trimmedBlanks_leavesNewlines)
{
    EXPECT_EQ(trimmedBlanks(QStringLiteral(" \ta b\u00a0")), QStringLiteral("a b"));
    EXPECT_EQ(trimmedBlanks(QStringLiteral(" \n a ")), QStringLiteral("\n a"));
    EXPECT_EQ(trimmedBlanks(QStringLiteral("   ")), QString());
}

TEST(Text, trimmedBlanksAndNewlines_takesBoth)
{
    EXPECT_EQ(trimmedBlanksAndNewlines(QStringLiteral("\r\n\u2028 a \n b\t\n")), QStringLiteral("a \n b"));
    EXPECT_EQ(trimmedBlanksAndNewlines(QStringLiteral(" \n ")), QString());
    EXPECT_EQ(trimmedBlanksAndNewlines(QString()), QString());
}

TEST(Text, splitLines_keepsEmptyLines)
{
    EXPECT_EQ(splitLines(QStringLiteral("a\r\nb\u2029")),
              QStringList({QStringLiteral("a"), QString(), QStringLiteral("b"), QString()}));
    EXPECT_EQ(splitLines(QString()), QStringList({QString()}));
}

TEST(Text, splitWords_dropsEmptyPieces)
{
    EXPECT_EQ(splitWords(QStringLiteral("  a \n\t b  ")), QStringList({QStringLiteral("a"), QStringLiteral("b")}));
    EXPECT_EQ(splitWords(QStringLiteral(" \n")), QStringList());
}

TEST(Text, contains_otherCase_isFound)
{
    EXPECT_TRUE(containsCaseFolded(QStringLiteral("Advanced SEARCH"), QStringLiteral("search")));
    EXPECT_TRUE(containsCaseFolded(QStringLiteral("STRASSE"), QStringLiteral("strasse")));
    EXPECT_FALSE(containsCaseFolded(QStringLiteral("sear ch"), QStringLiteral("search")));
}

TEST(Text, escapedForTerminal_longText_isWholeAndWhatATerminalObeysWrittenOut)
{
    EXPECT_EQ(escapedForTerminal(QString(1000, u'x') + QStringLiteral("\x1b")),
              QString(1000, u'x') + QStringLiteral("\\u{1b}"));
}

TEST(Text, harmless_plainText_staysAsItIs)
{
    EXPECT_EQ(harmless(QStringLiteral("Größe (1)")), QStringLiteral("Größe (1)"));
    EXPECT_EQ(harmless(QString(60, u'x')), QString(60, u'x'));
}

TEST(Text, harmless_whatATerminalObeysOrBreaksTheLine_isWrittenOut)
{
    EXPECT_EQ(harmless(QStringLiteral("a\x1b[2Jb\n\u2028")), QStringLiteral("a\\u{1b}[2Jb\\u{a}\\u{2028}"));
}

TEST(Text, harmless_moreThanSixtyCharacters_isCutBetweenTwo)
{
    const QString mouse = QString::fromUcs4(U"\U0001F401");
    EXPECT_EQ(harmless(mouse.repeated(61)), mouse.repeated(60) + QStringLiteral("..."));
}

TEST(Text, parseInteger_digitsWithSign_isTheNumber)
{
    EXPECT_EQ(parseInteger(QStringLiteral("007")), 7);
    EXPECT_EQ(parseInteger(QStringLiteral("+5")), 5);
    EXPECT_EQ(parseInteger(QStringLiteral("-9223372036854775808")), std::numeric_limits<qint64>::min());
}

TEST(Text, parseInteger_anythingElse_isNothing)
{
    for (const char *text : {"", "+", "-", " 1", "1 ", "1.0", "0x10", "1e3", "+-1", "9223372036854775808"})
        EXPECT_EQ(parseInteger(QString::fromLatin1(text)), std::nullopt) << text;
    EXPECT_EQ(parseInteger(QStringLiteral("\u0661")), std::nullopt); // a digit, but not of ours
}

} // namespace
