#include "observer/WireRecords.h"

#include "observer/ArchiveTarget.h"
#include "observer/ObserverSettings.h"

#include "Fixtures.h"
#include "support/Printers.h"

#include <QJsonArray>

#include <gmock/gmock.h>

#include <functional>
#include <limits>
#include <map>

using namespace ostrel;

namespace {

using Reencode = std::function<Result<QByteArray>(const QByteArray &)>;

template <class Record>
Result<QByteArray> reencoded(const QByteArray &json)
{
    const Result<Record> record = Record::fromJson(json);
    if (!record)
        return std::unexpected(record.error());
    return record->toJson();
}

const std::map<std::string, Reencode> &records()
{
    static const std::map<std::string, Reencode> records = {
        {"ObserverStatus", reencoded<ObserverStatus>},
        {"CapturedFramePayload", reencoded<CapturedFramePayload>},
        {"ArchiveStatus", reencoded<ArchiveStatus>},
        {"ArchiveTarget", reencoded<ArchiveTarget>},
        {"ArchiveExportStatus", reencoded<ArchiveExportStatus>},
        {"ArchiveExportEstimate", reencoded<ArchiveExportEstimate>},
        {"ForgetReport", reencoded<ForgetReport>},
        {"ObserverSettings", reencoded<ObserverSettings>},
    };
    return records;
}

class WireFixtures : public testing::TestWithParam<std::string>
{};

TEST_P(WireFixtures, everyCase_isDecodedOrRefusedAndEncodedByteForByte)
{
    const QJsonObject fixture =
        readFixture(fixtureFolder("wire").filePath(QString::fromStdString(GetParam()) + QLatin1String(".json")));
    ASSERT_EQ(fixture[QStringLiteral("record")].toString().toStdString(), GetParam());
    const QJsonArray cases = fixture[QStringLiteral("cases")].toArray();
    ASSERT_GE(cases.size(), 20);
    for (const auto &value : cases) {
        const QJsonObject wireCase = value.toObject();
        SCOPED_TRACE(wireCase[QStringLiteral("name")].toString().toStdString());
        const auto result = records().at(GetParam())(wireCase[QStringLiteral("json")].toString().toUtf8());
        ASSERT_TRUE(wireCase[QStringLiteral("valid")].isBool());
        ASSERT_EQ(result.has_value(), wireCase[QStringLiteral("valid")].toBool())
            << (result ? "decoded" : result.error().localizedDescription.toStdString());
        if (result)
            EXPECT_EQ(*result, wireCase[QStringLiteral("encoded")].toString().toUtf8());
    }
}

INSTANTIATE_TEST_SUITE_P(Records, WireFixtures,
                         testing::Values("ObserverStatus", "CapturedFramePayload", "ArchiveStatus", "ArchiveTarget",
                                         "ArchiveExportStatus", "ArchiveExportEstimate", "ForgetReport",
                                         "ObserverSettings"),
                         [](const auto &info) { return info.param; });

TEST(WireRecords, fixtureFolder_holdsNoRecordThatNobodyTests)
{
    for (const QString &file : fixtureFolder("wire").entryList(QDir::Files))
        EXPECT_TRUE(records().contains(file.chopped(5).toStdString())) << file.toStdString();
}

TEST(WireRecords, statusWithoutRunningOrChunkIndex_failsAndNamesTheKey)
{
    const auto words = [](const char *json) { return ObserverStatus::fromJson(json).error().localizedDescription; };
    EXPECT_TRUE(words(R"({"chunkIndex":0})").contains(QStringLiteral("\"running\" is missing")));
    EXPECT_TRUE(words(R"({"running":true})").contains(QStringLiteral("\"chunkIndex\" is missing")));
    EXPECT_TRUE(words(R"({"running":true,"chunkIndex":1.5})").contains(QStringLiteral("\"chunkIndex\"")));
}

TEST(WireRecords, statusWithOnlyRunningAndChunkIndex_leavesAllElseAbsent)
{
    ObserverStatus expected;
    expected.running = true;
    expected.chunkIndex = 3;
    EXPECT_EQ(ObserverStatus::fromJson(R"({"running":true,"chunkIndex":3})"), expected);
}

TEST(WireRecords, frameWithoutContext_isEncodedWithoutTextAndActiveKeys)
{
    CapturedFramePayload frame;
    frame.receivedAtMs = 1;
    frame.videoBase64 = Base64Text::ofText("AAAA");
    frame.videoMimeType = QStringLiteral("image/jpeg");
    EXPECT_EQ(frame.toJson(), QByteArray(R"({"receivedAtMs":1,"frameIndex":0,"videoBase64":"AAAA",)"
                                         R"("videoMimeType":"image/jpeg","displayId":"","displayLabel":"",)"
                                         R"("displayWidth":0,"displayHeight":0})"));
}

TEST(WireRecords, integersAtBothEndsOf64Bits_areExactBothWays)
{
    for (const qint64 value : {std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max(),
                               qint64(9007199254740993), -qint64(9007199254740993)}) {
        const ArchiveExportEstimate estimate{.clips = value, .bytes = 0};
        EXPECT_EQ(ArchiveExportEstimate::fromJson(estimate.toJson()), estimate) << value;
    }
}

TEST(WireRecords, integersJustBeyond64Bits_areRefusedNotRounded)
{
    for (const char *literal : {"9223372036854775808", "-9223372036854775809", "9223372036854775808.0", "1e19", "1e400",
                                "9007199254740993e0", "1e-1"}) {
        const QByteArray json = QByteArray(R"({"clips":0,"bytes":)") + literal + '}';
        EXPECT_FALSE(ArchiveExportEstimate::fromJson(json).has_value()) << literal;
    }
}

TEST(WireRecords, integersWithZeroFractionOrExponent_areIntegers)
{
    const std::map<std::string, qint64> literals = {
        {"20000.0", 20000}, {"9223372036854775807.00", 9223372036854775807}, {"2e4", 20000}, {"-0", 0}, {"1.5e1", 15}};
    for (const auto &[literal, value] : literals) {
        const auto estimate =
            ArchiveExportEstimate::fromJson(R"({"clips":0,"bytes":)" + QByteArray::fromStdString(literal) + '}');
        ASSERT_TRUE(estimate.has_value()) << literal;
        EXPECT_EQ(estimate->bytes, value) << literal;
    }
}

} // namespace
