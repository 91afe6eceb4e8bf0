#include "SettingsSetFixture.h"

#include "observer/SettingRules.h"
#include "observer/SettingsFields.h"

#include <gmock/gmock.h>

#include <vector>

using namespace ostrel;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// Every setting: values that it takes, values that it doesn't take, and what the complaint says.

struct SettingCase {
    const char *key;
    std::vector<const char *> good;
    std::vector<const char *> bad;
    const char *takes;
};

void PrintTo(const SettingCase &each, std::ostream *stream)
{
    *stream << each.key;
}

const std::vector<SettingCase> &settingCases()
{
    static const char *const line = "a text in one line that is not empty";
    static const char *const path = "a path that begins with / or ~/";
    static const char *const observers = "no value from outside: whether there is an archive is the observer's own";
    static const std::vector<SettingCase> cases{
        {"inferenceProvider", {"ostrel", "google_vertex_ai"}, {"", "Ostrel", "other"}, "ostrel or google_vertex_ai"},
        {"analysisServerUrl",
         {"https://example.org", "http://127.0.0.1:8899/base"},
         {"", "example.org", "https://", "ftp://example.org", "https://exa mple.org"},
         "a URL that begins with https:// or http://"},
        {"byokGoogleVertexAuthMode", {"api_key", "service_account"}, {"", "key"}, "api_key or service_account"},
        {"byokGoogleVertexProjectId", {"", "my-project"}, {"two\nlines"}, "a text in one line, or an empty one"},
        {"byokGoogleVertexLocation", {"global", "europe-west4"}, {"", " ", "a\nb"}, line},
        {"byokGoogleVertexServiceAccountPath",
         {"", "/etc/account.json", "~/account.json"},
         {"account.json", "~user/account.json"},
         "a path that begins with / or ~/, or an empty text"},
        {"outputDirectory", {"/srv/journal", "~/journal", "~"}, {"", "journal", "./x", "~user", "/a\nb"}, path},
        {"rawInputDirectory", {"/srv/input", "~/input"}, {"", "input"}, path},
        {"instructions", {"Write less.", "- one\n- two", "Größe 😀"}, {"", " \n "}, "a text that is not empty"},
        {"chunkSizeMs",
         {"1", "20000", "3600000", "+5"},
         {"", "0", "-1", "3600001", "1.5", "1e3", " 1", "1 ", "0x10", "99999999999999999999"},
         "a whole number from 1 to 3600000"},
        {"chunkOverlapMs", {"0", "4000", "3600000"}, {"-1", "x", "3600001"}, "a whole number from 0 to 3600000"},
        {"frameFps",
         {"0.5", "1", "2.", ".25", "1e-1", "+3"},
         {"", "0", "-1", "0,5", "inf", "nan", "1e999", "1e-999", " 1", "1.0.0", "0x1p3"},
         "a number above 0"},
        {"mediaResolution", {"HIGH", "LOW"}, {""}, line},
        {"model", {"gemini-3.1-flash-lite"}, {"", "a\nb"}, line},
        {"thinkingLevel", {"LOW"}, {""}, line},
        {"maxOutputTokens",
         {"0", "1000000"},
         {"-5", "1000001", "9223372036854775807", "9223372036854775808"},
         "a whole number from 0 to 1000000"},
        {"journalTailSize", {"0", "5", "10000"}, {"-1", "five", "10001"}, "a whole number from 0 to 10000"},
        {"saveRawInputs", {"true", "false"}, {"", "yes", "True", "1"}, "true or false"},
        {"archiveEnabled", {}, {"true", "false"}, observers},
        {"archiveVaultId", {}, {"", "vault"}, observers},
        {"localPort",
         {"1", "8799", "65535"},
         {"", "0", "65536", "-1", "99999", "http"},
         "a whole number from 1 to 65535"},
    };
    return cases;
}

class SettingsSetRule : public SettingsSet, public testing::WithParamInterface<SettingCase>
{};

TEST_P(SettingsSetRule, valueThatFits_isSavedAndTheRestStays)
{
    for (const char *value : GetParam().good) {
        SCOPED_TRACE(value);
        writeFile(R"({"model": "kept", "chunkOverlapMs": 77})");
        const auto outcome = set(GetParam().key, value);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.output, QString());
        EXPECT_THAT(outcome.messages.toStdString(), StartsWith(std::string(GetParam().key) + " is saved.\n"));

        ObserverSettings expected = ObserverSettings::fromJson(R"({"model": "kept", "chunkOverlapMs": 77})").value();
        ASSERT_TRUE(SettingRules::assign(expected, utf8(GetParam().key), utf8(value)).has_value());
        EXPECT_EQ(saved().toPrettyJson(), expected.toPrettyJson());
    }
}

TEST_P(SettingsSetRule, valueThatDoesNotFit_isStatus2AndTheFileIsAsItWas)
{
    const QByteArray before = R"({ "model":"kept" ,"localPort":9001})";
    writeFile(before);
    for (const char *value : GetParam().bad) {
        SCOPED_TRACE(value);
        const auto outcome = set(GetParam().key, value);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, QString());
        EXPECT_THAT(outcome.messages.toStdString(),
                    HasSubstr(std::string(GetParam().key) + " takes " + GetParam().takes));
        EXPECT_EQ(file(), before);
    }
    EXPECT_EQ(m_secrets.calls(), QStringList()) << "a wrong value costs no look at the secrets";
}

INSTANTIATE_TEST_SUITE_P(EverySetting, SettingsSetRule, testing::ValuesIn(settingCases()),
                         [](const auto &info) { return std::string(info.param.key); });

TEST(SettingRulesTable, everyFieldOfTheRecord_hasARuleAndACase)
{
    QStringList fields;
    const ObserverSettings settings = ObserverSettings::defaults();
    eachSettingsField(settings, [&](const char *key, const auto &) { fields.append(QLatin1String(key)); });
    EXPECT_EQ(SettingRules::keys(), fields);
    QStringList tested{utf8("analysisApiToken"), utf8("byokGoogleVertexApiKey")};
    for (const SettingCase &each : settingCases())
        tested.append(utf8(each.key));
    tested.sort();
    fields.sort();
    EXPECT_EQ(tested, fields);
}

TEST(SettingRulesTable, defaults_fitTheirRules)
{
    const ObserverSettings defaults = ObserverSettings::defaults();
    for (const char *key : {"frameFps", "chunkSizeMs", "localPort", "outputDirectory", "analysisServerUrl"}) {
        QString text;
        eachSettingsField(defaults, [&](const char *name, const auto &field) {
            if (QLatin1String(name) == QLatin1String(key))
                text = QVariant::fromValue(field).toString();
        });
        ObserverSettings copy = defaults;
        EXPECT_TRUE(SettingRules::assign(copy, utf8(key), text).has_value()) << key;
        EXPECT_EQ(copy, defaults);
    }
}

} // namespace
