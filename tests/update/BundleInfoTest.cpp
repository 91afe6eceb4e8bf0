#include "base/Files.h"
#include "support/Printers.h"
#include "update/UpdaterSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

class BundleInfoTest : public testing::Test
{
protected:
    BundleInfo read(const QByteArray &json)
    {
        EXPECT_TRUE(writeFileAtomically(m_folder.filePath(QStringLiteral("share/ostrel/Info.json")), json).has_value());
        return BundleInfo::read(m_folder.path());
    }

    QTemporaryDir m_folder;
};

TEST_F(BundleInfoTest, allKeys_areRead)
{
    const BundleInfo info = read(R"({"SUFeedURL": "https://example.com/feed", "SUPublicEDKey": "abc",
                                     "CFBundleShortVersionString": "1.2.3"})");
    EXPECT_EQ(info.feedUrl, QStringLiteral("https://example.com/feed"));
    EXPECT_EQ(info.publicKey, QStringLiteral("abc"));
    EXPECT_EQ(UpdaterSupport::appVersion(info), QStringLiteral("1.2.3"));
    EXPECT_EQ(info.prefix, m_folder.path());
}

TEST_F(BundleInfoTest, bundleWithoutAShortVersion_isDev)
{
    EXPECT_EQ(UpdaterSupport::appVersion(read("{}")), QStringLiteral("dev"));
}

TEST_F(BundleInfoTest, shortVersionThatIsNoText_isDev)
{
    EXPECT_EQ(UpdaterSupport::appVersion(read(R"({"CFBundleShortVersionString": 1})")), QStringLiteral("dev"));
}

TEST_F(BundleInfoTest, emptyFeedAddress_isNone)
{
    EXPECT_FALSE(read(R"({"SUFeedURL": ""})").feedUrl.has_value());
}

TEST_F(BundleInfoTest, bundleWithoutTheFile_saysNothing)
{
    const BundleInfo info = BundleInfo::read(m_folder.path());
    EXPECT_FALSE(info.feedUrl || info.publicKey || info.shortVersion);
}

TEST_F(BundleInfoTest, fileThatCantBeUnderstood_saysNothing)
{
    EXPECT_FALSE(read("{\"SUFeedURL\": ").feedUrl.has_value());
}

} // namespace
