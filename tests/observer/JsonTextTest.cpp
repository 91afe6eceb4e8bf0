#include "observer/JsonText.h"

#include "support/Printers.h"

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

QString textOf(const QByteArray &json)
{
    const auto members = parseJsonObject(json);
    return members && members->size() == 1 ? members->first().value.text : QStringLiteral("not read");
}

TEST(JsonText, valuePositions_coverExactlyTheValue)
{
    const QByteArray json = R"( { "a" : "x" , "b" : [1, {"c": "}"}] } )";
    const auto members = parseJsonObject(json);
    ASSERT_TRUE(members.has_value());
    ASSERT_EQ(members->size(), 2);
    const auto written = [&](int i) {
        const JsonValue &value = members->at(i).value;
        return json.mid(value.begin, value.end - value.begin);
    };
    EXPECT_EQ(written(0), QByteArray(R"("x")"));
    EXPECT_EQ(written(1), QByteArray(R"([1, {"c": "}"}])"));
}

TEST(JsonText, keyTwice_bothAreReported)
{
    const auto members = parseJsonObject(R"({"a":1,"a":2})");
    ASSERT_TRUE(members.has_value());
    EXPECT_EQ(members->size(), 2);
}

TEST(JsonText, surrogates_pairsMeetAndLoneHalvesAreReplaced)
{
    EXPECT_EQ(textOf(R"({"a":"\ud83d\ude00"})"), QStringLiteral("😀"));
    EXPECT_EQ(textOf(R"({"a":"\ud83dx\ude00"})"), QStringLiteral("\ufffdx\ufffd"));
}

TEST(JsonText, bytesThatAreNotUtf8_areRefused)
{
    for (const char *bytes : {"\xff", "\xc3", "\xed\xa0\x80", "\xc0\xaf"})
        EXPECT_FALSE(parseJsonObject(R"({"a":")" + QByteArray(bytes) + R"("})").has_value());
}

TEST(JsonText, byteOrderMark_isRefusedBeforeAndKeptInsideATextIsRead)
{
    EXPECT_FALSE(parseJsonObject("\xef\xbb\xbf{}").has_value());
    EXPECT_EQ(textOf("{\"a\":\"\xef\xbb\xbfx\"}"), QStringLiteral("\ufeffx"));
}

TEST(JsonText, nestingWithinTheLimit_isReadAndBeyondItRefused)
{
    const auto nested = [](int lists) { return R"({"a":)" + QByteArray(lists, '[') + QByteArray(lists, ']') + '}'; };
    EXPECT_TRUE(parseJsonObject(nested(255)).has_value());
    EXPECT_FALSE(parseJsonObject(nested(256)).has_value());
    EXPECT_FALSE(parseJsonObject(nested(1'000'000)).has_value());
}

TEST(JsonText, everyTruncation_isRefused)
{
    const QByteArray json = R"({"a":"\u00e9x","b":[1.5e3,true,{"c":null}],"d":-0})";
    ASSERT_TRUE(parseJsonObject(json).has_value());
    for (qsizetype length = 0; length < json.size(); ++length)
        EXPECT_FALSE(parseJsonObject(json.first(length)).has_value()) << length;
}

TEST(JsonText, brokenSyntax_isRefused)
{
    for (const char *json : {"[]",
                             "1",
                             R"({"a"})",
                             R"({"a":})",
                             R"({"a":1 "b":2})",
                             R"({"a":1,})",
                             R"({,})",
                             R"({a:1})",
                             R"({"a":+1})",
                             R"({"a":1.})",
                             R"({"a":.5})",
                             R"({"a":1e})",
                             R"({"a":01})",
                             R"({"a":-})",
                             R"({"a":truer})",
                             R"({"a":nul})",
                             R"({"a":[1,]})",
                             R"({"a":"\u+123"})",
                             R"({"a":"\u00g0"})",
                             R"({"a":1}{})",
                             "{\"a\":\"\t\"}",
                             R"({"a":"\v"})"})
        EXPECT_FALSE(parseJsonObject(json).has_value()) << json;
}

TEST(JsonText, writing_escapesWhatMustBeAndNothingElse)
{
    QByteArray json;
    appendJsonText(json, QStringLiteral("é/\"\\\b\f\n\r\t\u0001\u007f😀"));
    EXPECT_EQ(json, QByteArray("\"é/\\\"\\\\\\b\\f\\n\\r\\t\\u0001\x7f😀\""));
    EXPECT_EQ(textOf("{\"a\":" + json + '}'), QStringLiteral("é/\"\\\b\f\n\r\t\u0001\u007f😀"));
}

} // namespace
