#include "platform/kwin/KWinNews.h"

#include "support/Printers.h"

#include <QByteArrayList>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

QByteArray newsOf(const QByteArray &windows, const QByteArray &monitors = "[0,0,1280,720]")
{
    return R"({"monitors":[)" + monitors + R"(],"windows":[)" + windows + "]}";
}

/// A whole window, one of whose members is another.
QByteArray windowWith(const QByteArray &name = {}, const QByteArray &value = {})
{
    QByteArrayList members;
    for (const auto &[each, ordinary] :
         std::initializer_list<std::pair<QByteArray, QByteArray>>{{"id", R"("{7}")"},
                                                                  {"parent", R"("")"},
                                                                  {"pid", "41"},
                                                                  {"instance", R"("kwrite")"},
                                                                  {"class", R"("org.kde.kwrite")"},
                                                                  {"entry", R"("org.kde.kwrite")"},
                                                                  {"title", R"("Letter")"},
                                                                  {"unresponsive", "true"},
                                                                  {"popup", "false"},
                                                                  {"seen", "true"},
                                                                  {"place", "[1,2,3,4]"}})
        members.push_back('"' + each + "\":" + (each == name ? value : ordinary));
    return '{' + members.join(',') + '}';
}

KWinWindow windowIn(const QByteArray &window)
{
    const auto news = kwinNewsIn(newsOf(window));
    return news && news->windows.size() == 1 ? news->windows.first() : KWinWindow();
}

TEST(KWinNews, windowsAndMonitors_areTold)
{
    const auto news = kwinNewsIn(newsOf(windowWith(), "[0,0,1280,720],[1280,-20,800,600]"));
    ASSERT_TRUE(news);
    EXPECT_EQ(news->monitors, (QList{QRect(0, 0, 1280, 720), QRect(1280, -20, 800, 600)}));
    ASSERT_EQ(news->windows.size(), 1);
    EXPECT_EQ(news->windows.first(), (KWinWindow{.id = QStringLiteral("{7}"),
                                                 .parent = {},
                                                 .pid = 41,
                                                 .windowClass = QStringLiteral("kwrite org.kde.kwrite"),
                                                 .desktopFile = QStringLiteral("org.kde.kwrite"),
                                                 .title = QStringLiteral("Letter"),
                                                 .isUnresponsive = true,
                                                 .isPopup = false,
                                                 .isSeen = true,
                                                 .frame = QRect(1, 2, 3, 4),
                                                 .isFlying = false}));
}

TEST(KWinNews, fractionsOfPixels_countWhereTheyTouch)
{
    EXPECT_EQ(windowIn(windowWith("place", "[-0.5,1.25,2,2]")).frame, QRect(QPoint(-1, 1), QPoint(1, 3)));
}

TEST(KWinNews, monitorWithFractionsOfPixels_makesWindowsLargerByWhatIsRounded)
{
    const QByteArray windows = windowWith() + ',' + windowWith("place", "[1,2,0,0]");
    const auto exact = kwinNewsIn(newsOf(windows, "[0,0,1280,720],[1280,0,853.0,480]"));
    ASSERT_TRUE(exact);
    EXPECT_EQ(exact->windows.first().frame, QRect(1, 2, 3, 4));
    const auto rounded = kwinNewsIn(newsOf(windows, "[0,0,1280,720],[1280,0,853.25,480]"));
    ASSERT_TRUE(rounded);
    EXPECT_EQ(rounded->monitors, (QList{QRect(0, 0, 1280, 720), QRect(1280, 0, 854, 480)}));
    EXPECT_EQ(rounded->windows.first().frame, QRect(0, 1, 5, 6));
    EXPECT_TRUE(rounded->windows.last().frame.isEmpty()) << "one that is nowhere";
}

TEST(KWinNews, menuEntryWithItsPath_isItsIdentifier)
{
    EXPECT_EQ(windowIn(windowWith("entry", R"("/usr/share/applications/org.example.Safe.desktop")")).desktopFile,
              QStringLiteral("org.example.Safe"));
}

TEST(KWinNews, unknownProcess_isNone)
{
    for (const QByteArray &pid : {"-1", "null", "\"4\"", "1e99", "0"})
        EXPECT_EQ(windowIn(windowWith("pid", pid)).id, QStringLiteral("{7}")) << pid.toStdString();
    EXPECT_EQ(windowIn(windowWith("pid", "-1")).pid, 0);
    EXPECT_EQ(windowIn(windowWith("pid", "1e99")).pid, 0);
}

TEST(KWinNews, nothingOfIt_isNews)
{
    for (const QByteArray &json : {"", "null", "[]", "{}", "{\"monitors\":[]}", "{\"monitors\":{},\"windows\":[]}",
                                   "{\"monitors\":[],\"windows\":[]", "\xff\xfe"})
        EXPECT_FALSE(kwinNewsIn(json)) << json.toStdString();
}

TEST(KWinNews, oneMalformedWindow_makesAllOfItUnknown)
{
    const auto isNews = [](const QByteArray &name, const QByteArray &value) {
        return kwinNewsIn(newsOf(windowWith() + ',' + windowWith(name, value))).has_value();
    };
    ASSERT_TRUE(isNews({}, {}));
    for (const QByteArray &text : {"id", "parent", "instance", "class", "entry", "title"}) {
        EXPECT_FALSE(isNews(text, "5")) << text.toStdString();
        EXPECT_FALSE(isNews(text, '"' + QByteArray(5'000, 'x') + '"')) << text.toStdString();
    }
    EXPECT_FALSE(isNews("id", R"("")"));
    EXPECT_FALSE(isNews("unresponsive", "0"));
    EXPECT_FALSE(isNews("popup", "1"));
    EXPECT_FALSE(isNews("seen", "null"));
    for (const QByteArray &place : {"null", "[]", "[1,2,3]", "[1,2,3,4,5]", "[1,2,3,null]", "[1,2,-3,4]", "[1e9,2,3,4]",
                                    "[1,2,3,1e300]", "{\"x\":1}"})
        EXPECT_FALSE(isNews("place", place)) << place.toStdString();
}

TEST(KWinNews, malformedMonitor_makesAllOfItUnknown)
{
    EXPECT_FALSE(kwinNewsIn(newsOf(windowWith(), "[0,0,1280]")));
    EXPECT_FALSE(kwinNewsIn(newsOf(windowWith(), "null")));
}

TEST(KWinNews, moreWindowsThanAnybodyHas_areUnknown)
{
    const auto many = [](qsizetype count) { return kwinNewsIn(newsOf(QByteArrayList(count, windowWith()).join(','))); };
    EXPECT_TRUE(many(mostKWinWindows));
    EXPECT_FALSE(many(mostKWinWindows + 1));
}

} // namespace
