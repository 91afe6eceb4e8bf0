#include "update/Version.h"
#include "support/Printers.h"

#include <gmock/gmock.h>

using namespace ostrel;

namespace {

Version version(const char *text)
{
    return Version::parse(QString::fromLatin1(text)).value();
}

TEST(VersionTest, order_isThatOfSemanticVersions)
{
    const QList<const char *> ascending{"0.9.9",        "0.10.0",        "1.0.0-7",       "1.0.0--05",
                                        "1.0.0--5",     "1.0.0-alpha",   "1.0.0-alpha.1", "1.0.0-alpha.beta",
                                        "1.0.0-beta.2", "1.0.0-beta.11", "1.0.0-rc.1",    "1.0.0",
                                        "1.0.1"};
    for (qsizetype i = 0; i < ascending.size(); ++i) {
        for (qsizetype j = 0; j < ascending.size(); ++j)
            EXPECT_EQ(version(ascending[i]) <=> version(ascending[j]), i <=> j) << ascending[i] << ' ' << ascending[j];
    }
}

TEST(VersionTest, text_isWhatWasParsed)
{
    for (const char *text : {"0.1.0", "12.0.345", "1.0.0-beta.2", "1.0.0-x-y.0"})
        EXPECT_EQ(version(text).text(), QString::fromLatin1(text));
}

TEST(VersionTest, whatIsNoVersion_isRefused)
{
    for (const char *text : {"", "1", "1.2", "1.2.3.4", "v1.2.3", "1.2.3 ", "01.2.3", "1.2.3-", "1.2.3-01", "1.2.3+5",
                             "1.2.3/..", "../1.2.3", "1.2.3-a..b", "9999999999.0.0", "1.2.3\n", "-1.2.3"})
        EXPECT_FALSE(Version::parse(QString::fromLatin1(text)).has_value()) << text;
    EXPECT_FALSE(Version::parse(QStringLiteral("1.2.3-") + QString(64, u'a')).has_value()) << "no name for a folder";
}

} // namespace
