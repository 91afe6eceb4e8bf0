#include "observer/ObserverSettings.h"

#include "base/Paths.h"
#include "observer/SettingsFields.h"
#include "support/Printers.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <limits>

using namespace ostrel;

namespace {

TEST(ObserverSettings, emptyObject_isExactlyTheDefaults)
{
    EXPECT_EQ(ObserverSettings::fromJson("{}"), ObserverSettings::defaults());
}

TEST(ObserverSettings, onlyLocalPort_isTheDefaultsWithThatPort)
{
    ObserverSettings expected = ObserverSettings::defaults();
    expected.localPort = 9001;
    const auto settings = ObserverSettings::fromJson(R"({"localPort":9001})");
    EXPECT_EQ(settings, expected);
    EXPECT_EQ(settings->localhostBaseURL(), QUrl(QStringLiteral("http://127.0.0.1:9001")));
}

TEST(ObserverSettings, defaultInstructions_areTheSevenSentences)
{
    const QString instructions = ObserverSettings::defaults().instructions;
    EXPECT_TRUE(instructions.startsWith(QStringLiteral("You are a private work-memory assistant")));
    EXPECT_TRUE(instructions.endsWith(QStringLiteral("activity. If nothing durable happened, output NOOP.")));
    EXPECT_EQ(instructions.split(QStringLiteral(". ")).size(), 7);
    EXPECT_FALSE(instructions.contains(QStringLiteral("  ")));
}

TEST(ObserverSettings, fields_areTwentyThreeWithTheLastOneThePort)
{
    QStringList keys;
    const ObserverSettings settings = ObserverSettings::defaults();
    eachSettingsField(settings, [&](const char *key, const auto &) { keys.append(QLatin1String(key)); });
    EXPECT_EQ(keys.size(), 23);
    EXPECT_EQ(keys.first(), QStringLiteral("inferenceProvider"));
    EXPECT_EQ(keys.last(), QStringLiteral("localPort"));
}

TEST(ObserverSettings, prettyJson_hasAllKeysSortedAndReadsBack)
{
    ObserverSettings settings = ObserverSettings::defaults();
    settings.frameFps = 0.1;
    settings.chunkSizeMs = std::numeric_limits<qint64>::max();
    settings.instructions = QStringLiteral("a \"b\"\n\\c é");
    const QByteArray json = settings.toPrettyJson();
    EXPECT_EQ(ObserverSettings::fromJson(json), settings);
    EXPECT_TRUE(json.startsWith("{\n  \"analysisApiToken\": \"\",\n  \"analysisServerUrl\": "));
    EXPECT_TRUE(json.endsWith("\n}\n"));
    QList<QByteArray> keys;
    for (const QByteArray &line : json.split('\n')) {
        if (line.startsWith("  \""))
            keys.append(line.mid(3, line.indexOf('"', 3) - 3));
    }
    EXPECT_EQ(keys.size(), 23);
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
}

TEST(ObserverSettings, serverUrlThatIsNone_fallsBackToPort8899)
{
    ObserverSettings settings = ObserverSettings::defaults();
    const QUrl fallback(QStringLiteral("http://127.0.0.1:8899"));
    for (const char *text : {"", "not a url", "analysis", "http://", "http://a b/", "http://host:port/", "//host"}) {
        settings.analysisServerUrl = QString::fromLatin1(text);
        EXPECT_EQ(settings.serverBaseURL(), fallback) << text;
    }
    settings.analysisServerUrl = QStringLiteral("https://example.org/v1");
    EXPECT_EQ(settings.serverBaseURL(), QUrl(QStringLiteral("https://example.org/v1")));
}

TEST(ObserverSettings, localPortOutOfRange_givesNoUrl)
{
    ObserverSettings settings = ObserverSettings::defaults();
    for (const qint64 port : {qint64(-1), qint64(65536), std::numeric_limits<qint64>::max()}) {
        settings.localPort = port;
        EXPECT_FALSE(settings.localhostBaseURL().isValid()) << port;
    }
}

TEST(ObserverSettings, legacyDirectories_areReplacedExactly)
{
    const auto migrated = [](const char *output, const char *raw) {
        ObserverSettings settings = ObserverSettings::defaults();
        settings.outputDirectory = QString::fromLatin1(output);
        settings.rawInputDirectory = QString::fromLatin1(raw);
        const ObserverSettings result = settings.migratingLegacyDefaultDirectories();
        return QStringList{result.outputDirectory, result.rawInputDirectory};
    };
    const QStringList today = {QStringLiteral("~/ostrel/journal"), QStringLiteral("~/ostrel/model-input")};
    EXPECT_EQ(migrated("~/Moravel/journal", "~/Moravel/model-input"), today);
    EXPECT_EQ(migrated("~/Tamsk Ostrel/journal", "~/Tamsk Ostrel/model-input"), today);
    const QStringList kept = {QStringLiteral("~/Moravel/journal/"), QStringLiteral("~/moravel/model-input")};
    EXPECT_EQ(migrated("~/Moravel/journal/", "~/moravel/model-input"), kept);
}

} // namespace
