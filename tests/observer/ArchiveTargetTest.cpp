#include "observer/ArchiveTarget.h"

#include "base/Fault.h"
#include "observer/ArchiveTargetRules.h"
#include "support/Printers.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace ostrel;

namespace {

using Kind = ArchiveTarget::Kind;

ArchiveTarget bucket()
{
    ArchiveTarget target;
    target.kind = Kind::S3;
    target.endpoint = QStringLiteral("https://s3.example.org");
    target.region = QStringLiteral("eu-central-1");
    target.bucket = QStringLiteral("footage");
    target.prefix = QStringLiteral("mine/2026");
    target.pathStyle = true;
    target.accessKeyId = QStringLiteral("AKID");
    target.secretAccessKey = QStringLiteral("secret");
    return target;
}

ArchiveTarget remote(const QString &name)
{
    ArchiveTarget target;
    target.kind = Kind::Rclone;
    target.remote = name;
    return target;
}

bool isRefused(QString ArchiveTarget::*field, const char *text)
{
    ArchiveTarget target = bucket();
    target.*field = QString::fromUtf8(text);
    return ArchiveTargetRules::complaintAbout(target).has_value();
}

TEST(ArchiveTargetRecord, everyKind_isWrittenWithItsFieldsAloneAndReadBack)
{
    const QByteArray records[] = {
        R"({"kind":"none","lossless":false})",
        R"({"kind":"folder","lossless":true,"path":"~/footage"})",
        R"({"kind":"s3","lossless":false,"endpoint":"https://s3.example.org","region":"eu-central-1",)"
        R"("bucket":"footage","prefix":"","pathStyle":false,"accessKeyId":"AKID","secretAccessKey":"<redacted>"})",
        R"({"kind":"rclone","lossless":false,"remote":"mycloud:footage"})",
    };
    for (const QByteArray &json : records) {
        const auto target = ArchiveTarget::fromJson(json);
        ASSERT_TRUE(target) << target.error().localizedDescription.toStdString();
        EXPECT_EQ(target->toJson(), json);
    }
}

TEST(ArchiveTargetRecord, kindThatIsNotKnownOrAMissingField_isUndecodable)
{
    for (const char *json : {"", "[]", "{}", R"({"kind":"tape","lossless":false})", R"({"kind":7,"lossless":false})",
                             R"({"kind":"folder","lossless":false})", R"({"kind":"folder","path":"/a"})",
                             R"({"kind":"rclone","lossless":false,"remote":1})"}) {
        const auto target = ArchiveTarget::fromJson(json);
        ASSERT_FALSE(target) << json;
        EXPECT_TRUE(isFault(target.error(), Fault::UndecodableAnswer)) << json;
    }
}

TEST(ArchiveTargetRecord, samePlace_isThatOfTheFieldsOfItsKind)
{
    ArchiveTarget other = bucket();
    other.accessKeyId = QStringLiteral("another");
    other.lossless = true;
    other.path = QStringLiteral("/left/from/another/kind");
    EXPECT_TRUE(isSamePlace(bucket(), other));
    for (QString ArchiveTarget::*field : {&ArchiveTarget::endpoint, &ArchiveTarget::bucket, &ArchiveTarget::prefix}) {
        ArchiveTarget elsewhere = bucket();
        elsewhere.*field += QLatin1Char('x');
        EXPECT_FALSE(isSamePlace(bucket(), elsewhere));
    }
    EXPECT_FALSE(isSamePlace(bucket(), ArchiveTarget()));
    EXPECT_FALSE(isSamePlace(remote(QStringLiteral("a:")), remote(QStringLiteral("b:"))));
    EXPECT_TRUE(isSamePlace(ArchiveTarget(), ArchiveTarget()));
}

TEST(ArchiveTargetRecord, placeText_namesThePlaceAndNoCredential)
{
    EXPECT_EQ(archivePlaceText(bucket()), QStringLiteral("bucket footage/mine/2026 at s3.example.org"));
    EXPECT_EQ(archivePlaceText(remote(QStringLiteral("mycloud:footage"))), QStringLiteral("rclone mycloud:footage"));
    EXPECT_EQ(archivePlaceText(ArchiveTarget()), QString());
}

TEST(ArchiveTargetRules, complete_isNotComplainedAbout)
{
    EXPECT_EQ(ArchiveTargetRules::complaintAbout(bucket()), std::nullopt);
    EXPECT_EQ(ArchiveTargetRules::complaintAbout(remote(QStringLiteral("my cloud:"))), std::nullopt);
    ArchiveTarget keeping = bucket();
    keeping.secretAccessKey = ArchiveTarget::redacted;
    EXPECT_EQ(ArchiveTargetRules::complaintAbout(keeping), std::nullopt);
}

TEST(ArchiveTargetRules, endpoint_isASafeHostAndNothingBehindIt)
{
    for (const char *safe : {"https://s3.example.org", "https://s3.example.org:9000/", "http://127.0.0.1:9000",
                             "http://localhost:9000", "http://[::1]:9000"})
        EXPECT_FALSE(isRefused(&ArchiveTarget::endpoint, safe)) << safe;
    for (const char *unsafe : {"", "s3.example.org", "http://s3.example.org", "http://127.0.0.1.example.org",
                               "https://user@s3.example.org", "https://s3.example.org/bucket",
                               "https://s3.example.org?a=b", "https://s3.example.org#a", "https://", "ftp://127.0.0.1"})
        EXPECT_TRUE(isRefused(&ArchiveTarget::endpoint, unsafe)) << unsafe;
}

TEST(ArchiveTargetRules, textsOfABucket_haveTheFormThatTheObserverTakes)
{
    const std::vector<std::pair<QString ArchiveTarget::*, const char *>> refused{
        {&ArchiveTarget::bucket, "ab"},
        {&ArchiveTarget::bucket, "Footage"},
        {&ArchiveTarget::bucket, "footage\n"},
        {&ArchiveTarget::region, ""},
        {&ArchiveTarget::region, "eu central"},
        {&ArchiveTarget::prefix, "/mine"},
        {&ArchiveTarget::prefix, "mine/../his"},
        {&ArchiveTarget::prefix, "mine//his"},
        {&ArchiveTarget::accessKeyId, ""},
        {&ArchiveTarget::accessKeyId, "AK ID"},
        {&ArchiveTarget::secretAccessKey, ""},
        {&ArchiveTarget::secretAccessKey, "a\nb"},
        {&ArchiveTarget::secretAccessKey, "geheimnis\u00e4"}};
    for (const auto &[field, text] : refused)
        EXPECT_TRUE(isRefused(field, text)) << text;
    EXPECT_FALSE(isRefused(&ArchiveTarget::prefix, ""));
}

TEST(ArchiveTargetRules, remote_isOneOfTheUsersConfiguration)
{
    for (const char *name : {"", "mycloud", ":s3:bucket", "-x:footage", "mycloud:-x", "mycloud:a\nb"})
        EXPECT_TRUE(ArchiveTargetRules::complaintAbout(remote(QString::fromUtf8(name)))) << name;
}

} // namespace
