#include "support/Printers.h"
#include "support/UpdateFeed.h"
#include "update/UpdateFault.h"

#include <gmock/gmock.h>

using namespace ostrel;

namespace {

const QUrl address(QStringLiteral("https://example.com/ostrel/feed"));

class FeedTest : public testing::Test
{
protected:
    QJsonObject announced(const QString &version, const QString &platform = thisPlatform()) const
    {
        return announcement(m_key, version, "bytes", QStringLiteral("archives/") + version, platform);
    }
    Result<Feed> read(const QByteArray &bytes) const { return readFeed(bytes, m_key.publicKey(), address); }
    Result<Feed> read(const QJsonObject &document) const { return read(signedFeed(m_key, document)); }
    std::optional<QString> newest(const QJsonArray &releases, const char *than) const
    {
        const auto feed = read(feedDocument(releases));
        const auto release =
            newestRelease(feed.value(), thisPlatform(), Version::parse(QString::fromLatin1(than)).value());
        return release ? std::optional(release->version.text()) : std::nullopt;
    }
    void expectFault(const Result<Feed> &outcome, UpdateFault fault)
    {
        ASSERT_FALSE(outcome.has_value());
        EXPECT_TRUE(isUpdateFault(outcome.error(), fault)) << outcome.error().localizedDescription.toStdString();
    }

    SigningKey m_key;
};

TEST_F(FeedTest, signedFeed_isRead)
{
    const auto feed = read(feedDocument({announced(QStringLiteral("0.2.0"))}, 7));
    ASSERT_TRUE(feed.has_value()) << feed.error().localizedDescription.toStdString();
    EXPECT_EQ(feed->sequence, 7);
    EXPECT_EQ(feed->expiresMs, 1'706'659'200'000);
    ASSERT_EQ(feed->releases.size(), 1);
    const Release &release = feed->releases.first();
    EXPECT_EQ(release.version.text(), QStringLiteral("0.2.0"));
    EXPECT_EQ(release.url, QUrl(QStringLiteral("https://example.com/ostrel/archives/0.2.0")));
    EXPECT_EQ(release.size, 5);
    EXPECT_EQ(release.notes, QStringLiteral("What is new."));
}

TEST_F(FeedTest, unsignedFeed_isRefused)
{
    expectFault(read(QJsonDocument(feedDocument({})).toJson()), UpdateFault::FeedUnsigned);
    expectFault(read(QByteArray("<html>Please log in</html>\n")), UpdateFault::FeedUnsigned);
    expectFault(read(QByteArray()), UpdateFault::FeedUnsigned);
}

TEST_F(FeedTest, feedSignedWithAnotherKey_isRefused)
{
    expectFault(read(signedFeed(SigningKey(), feedDocument({}))), UpdateFault::FeedSignatureWrong);
}

TEST_F(FeedTest, feedWithAChangedByte_isRefusedWhereverItIs)
{
    const QByteArray right = signedFeed(m_key, feedDocument({announced(QStringLiteral("0.2.0"))}));
    ASSERT_TRUE(read(right).has_value());
    for (qsizetype i = 0; i < right.size(); ++i) {
        QByteArray wrong = right;
        wrong[i] = char(wrong[i] ^ 1);
        EXPECT_FALSE(read(wrong).has_value()) << "byte " << i;
    }
}

TEST_F(FeedTest, signatureOfAnArchive_isNoneOfAFeed)
{
    const QByteArray json = QJsonDocument(feedDocument({})).toJson();
    expectFault(read("ostrel-feed 1 " + m_key.sign(json).toBase64() + '\n' + json), UpdateFault::FeedSignatureWrong);
}

TEST_F(FeedTest, signedNonsense_isRefused)
{
    expectFault(read(signedFeed(m_key, QByteArray("{"))), UpdateFault::FeedNotUnderstood);
    expectFault(read(signedFeed(m_key, QByteArray("[]"))), UpdateFault::FeedNotUnderstood);
}

struct WrongField {
    const char *key;
    QJsonValue value;
};

class WrongFeedFields : public FeedTest, public testing::WithParamInterface<WrongField>
{};

TEST_P(WrongFeedFields, inAnyRelease_areRefused)
{
    QJsonObject wrong = announced(QStringLiteral("0.2.0"));
    wrong[QLatin1String(GetParam().key)] = GetParam().value;
    expectFault(read(feedDocument({announced(QStringLiteral("0.2.0")), wrong})), UpdateFault::FeedNotUnderstood);
}

INSTANTIATE_TEST_SUITE_P(
    All, WrongFeedFields,
    testing::Values(WrongField{"version", QStringLiteral("../../etc")}, WrongField{"version", 2},
                    WrongField{"url", QJsonValue()}, WrongField{"size", 0}, WrongField{"size", 1.5},
                    WrongField{"size", -5}, WrongField{"size", QStringLiteral("5")}, WrongField{"size", 1e12},
                    WrongField{"sha256", QStringLiteral("../x")}, WrongField{"sha256", QString(64, u'A')},
                    WrongField{"signature", QStringLiteral("!")}, WrongField{"platform", 1}, WrongField{"notes", 1}),
    [](const auto &test) { return std::string(test.param.key) + std::to_string(test.index); });

TEST_F(FeedTest, wrongFieldsOfTheFeed_areRefused)
{
    for (const QJsonValue &sequence : {QJsonValue(0), QJsonValue(1.5), QJsonValue(QStringLiteral("1")), QJsonValue()}) {
        QJsonObject document = feedDocument({});
        document[QStringLiteral("sequence")] = sequence;
        expectFault(read(document), UpdateFault::FeedNotUnderstood);
    }
    for (const char *time : {"", "soon", "2024-01-31", "2024-01-31T00:00:00", "2024-13-31T00:00:00Z"})
        expectFault(read(feedDocument({}, 1, QString::fromLatin1(time))), UpdateFault::FeedNotUnderstood);
}

TEST_F(FeedTest, newestRelease_isTheHighestOfThisPlatform)
{
    const QJsonArray releases{announced(QStringLiteral("0.2.0")), announced(QStringLiteral("0.10.0")),
                              announced(QStringLiteral("0.3.0")),
                              announced(QStringLiteral("0.11.0"), QStringLiteral("linux-other"))};
    EXPECT_EQ(newest(releases, "0.1.0"), QStringLiteral("0.10.0"));
}

TEST_F(FeedTest, downgradedFeed_hasNothingNewer)
{
    EXPECT_EQ(newest({announced(QStringLiteral("0.1.0"))}, "0.2.0"), std::nullopt);
    EXPECT_EQ(newest({announced(QStringLiteral("0.2.0"))}, "0.2.0"), std::nullopt) << "what is installed is not newer";
    EXPECT_EQ(newest({announced(QStringLiteral("0.2.0-rc.1"))}, "0.2.0"), std::nullopt);
}

TEST(UpdateKeyTest, textThatIsNoKey_isRefused)
{
    const QString right = SigningKey().publicText();
    ASSERT_TRUE(UpdateKey::parse(right).has_value());
    for (const QString &text : {QString(), right.chopped(1), right + u'=', QStringLiteral("AAAA"),
                                QString(right).replace(0, 1, QStringLiteral("!"))})
        EXPECT_FALSE(UpdateKey::parse(text).has_value()) << text.toStdString();
}

} // namespace
