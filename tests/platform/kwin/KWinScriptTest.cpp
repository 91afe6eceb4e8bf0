#include "platform/kwin/KWinScript.h"
#include "platform/kwin/KWinNews.h"

#include "support/Printers.h"

#include <QJSEngine>

#include <gtest/gtest.h>

using namespace ostrel;

namespace {

/// What KWin gives to a script, as far as ours uses it: calls are noted, timers run when the test says so. Only what is
/// a `var` is there for what is run later.
constexpr const char *surroundings = R"(
"use strict";
var told = [], asked = [], unloaded = [], waiting = [];
var answer = null;

function signal() {
    const listeners = [];
    return {connect: each => listeners.push(each), emit: value => listeners.forEach(each => each(value))};
}
function callDBus(service, path, kind, method, ...rest) {
    if (method === "Tell")
        told.push([service, path, kind, ...rest]);
    else if (method === "NameHasOwner") {
        asked.push(rest[0]);
        answer = rest[1];
    } else
        unloaded.push([service, method, ...rest]);
}
function QTimer() {
    this.timeout = signal();
    this.start = () => waiting.push(this);
}
function turn() {
    waiting.splice(0).forEach(each => each.timeout.emit());
}
function print() {}
var KWin = {ScreenArea: 0};

function window(id, more) {
    return Object.assign({internalId: id, transientFor: null, pid: 41, resourceName: "kwrite",
        resourceClass: "org.kde.kwrite", desktopFileName: "org.kde.kwrite", caption: "Letter", unresponsive: false,
        popupWindow: false, minimized: false, onAllDesktops: false, activities: [], deleted: false,
        frameGeometry: {x: 1, y: 2, width: 3, height: 4}, frameGeometryChanged: signal(), captionChanged: signal(),
        minimizedChanged: signal()}, more);
}
var place = {x: 0, y: 0, width: 1280, height: 720};
var windows = [];
var workspace5 = {clientList: () => windows, clientAdded: signal(), clientRemoved: signal(), currentDesktop: 1,
    currentDesktopChanged: signal(), numScreens: 1, clientArea: () => place, currentActivity: "a"};
var workspace6 = {windowList: () => windows, windowAdded: signal(), windowRemoved: signal(),
    currentDesktop: {id: "one"}, currentDesktopChanged: signal(), screens: [{geometry: place}], currentActivity: "a"};
var workspace = workspace5;
)";

class KWinScript : public testing::Test
{
protected:
    KWinScript() { run(QString::fromUtf8(surroundings)); }

    QJSValue run(const QString &text)
    {
        QJSValue value = m_engine.evaluate(text);
        if (value.isError())
            ADD_FAILURE() << qPrintable(value.toString()) << ", line "
                          << value.property(QStringLiteral("lineNumber")).toInt();
        return value;
    }
    /// @param windows that are there from the beginning
    void start(const QString &windows = {})
    {
        run(QStringLiteral("windows.push(%1)").arg(windows));
        // Within a function, as its names are its own in KWin.
        run(QStringLiteral("(function() {") + QString::fromUtf8(kwinScript(":1.7", "ours")) + QStringLiteral("})()"));
    }
    int count(const char *list) { return run(QStringLiteral("%1.length").arg(QLatin1String(list))).toInt(); }
    /// By the last call.
    std::optional<KWinNews> news()
    {
        return kwinNewsIn(run(QStringLiteral("told[told.length - 1][3]")).toString().toUtf8());
    }
    KWinWindow firstWindow()
    {
        const auto told = news();
        return told && !told->windows.isEmpty() ? told->windows.first() : KWinWindow();
    }
    QList<bool> seen()
    {
        QList<bool> each;
        if (const auto told = news()) {
            for (const KWinWindow &window : told->windows)
                each.append(window.isSeen);
        }
        return each;
    }

    QJSEngine m_engine;
};

TEST_F(KWinScript, windowsAndMonitors_areToldAtOnce)
{
    for (const char *version : {"workspace5", "workspace6"}) {
        run(QStringLiteral("windows.length = 0; workspace = %1").arg(QLatin1String(version)));
        start(QStringLiteral("window('{7}'), window('{8}', {transientFor: {internalId: '{7}'}, popupWindow: true})"));
        EXPECT_EQ(run(QStringLiteral("told[told.length - 1].slice(0, 3).join(' ')")).toString(),
                  QStringLiteral(":1.7 /com/tamsk/ostrel/KWinWindows com.tamsk.ostrel.KWinWindows1"));
        const auto told = news();
        ASSERT_TRUE(told) << version;
        EXPECT_EQ(told->monitors, (QList{QRect(0, 0, 1280, 720)}));
        ASSERT_EQ(told->windows.size(), 2);
        EXPECT_EQ(told->windows[0], (KWinWindow{.id = QStringLiteral("{7}"),
                                                .parent = {},
                                                .pid = 41,
                                                .windowClass = QStringLiteral("kwrite org.kde.kwrite"),
                                                .desktopFile = QStringLiteral("org.kde.kwrite"),
                                                .title = QStringLiteral("Letter"),
                                                .isUnresponsive = false,
                                                .isPopup = false,
                                                .isSeen = true,
                                                .frame = QRect(1, 2, 3, 4),
                                                .isFlying = false}));
        EXPECT_EQ(told->windows[1].parent, QStringLiteral("{7}"));
        EXPECT_TRUE(told->windows[1].isPopup);
    }
}

TEST_F(KWinScript, changesOfOneTurn_areToldOnce)
{
    start(QStringLiteral("window('{7}')"));
    run(QStringLiteral("turn()"));
    const int before = count("told");
    run(QStringLiteral("windows[0].frameGeometry.x = 50; windows[0].caption = 'Other';"
                       "for (const each of ['frameGeometryChanged', 'captionChanged', 'frameGeometryChanged'])"
                       "    windows[0][each].emit()"));
    EXPECT_EQ(count("told"), before);
    run(QStringLiteral("turn()"));
    EXPECT_EQ(count("told"), before + 1);
    EXPECT_EQ(firstWindow().frame.x(), 50);
    EXPECT_EQ(firstWindow().title, QStringLiteral("Other"));
    run(QStringLiteral("windows[0].minimized = true; windows[0].minimizedChanged.emit(); turn()"));
    EXPECT_EQ(count("told"), before + 2);
    EXPECT_EQ(seen(), (QList{false}));
}

TEST_F(KWinScript, windowThatComes_isToldAndFollowed)
{
    start();
    run(QStringLiteral("windows.push(window('{9}')); workspace.clientAdded.emit(windows[0]); turn()"));
    ASSERT_EQ(news()->windows.size(), 1);
    run(QStringLiteral("windows[0].caption = 'Secret'; windows[0].captionChanged.emit(); turn()"));
    EXPECT_EQ(firstWindow().title, QStringLiteral("Secret"));
    run(QStringLiteral("windows.length = 0; workspace.clientRemoved.emit(); turn()"));
    ASSERT_TRUE(news());
    EXPECT_TRUE(news()->windows.isEmpty());
}

TEST_F(KWinScript, desktopsOfKWin5_hideWindows)
{
    start(
        QStringLiteral("window('{1}', {x11DesktopIds: [1]}), window('{2}', {x11DesktopIds: [2, 3]}),"
                       "window('{3}', {x11DesktopIds: []}), window('{4}', {x11DesktopIds: [2], onAllDesktops: true})"));
    EXPECT_EQ(seen(), (QList{true, false, true, true}));
    run(QStringLiteral("workspace.currentDesktop = 3; workspace.currentDesktopChanged.emit(); turn()"));
    EXPECT_EQ(seen(), (QList{false, true, true, true}));
}

TEST_F(KWinScript, desktopsOfKWin6_hideWindows)
{
    run(QStringLiteral("workspace = workspace6"));
    start(QStringLiteral("window('{1}', {desktops: [{id: 'one'}]}), window('{2}', {desktops: [{id: 'two'}]}),"
                         "window('{3}', {desktops: []})"));
    EXPECT_EQ(seen(), (QList{true, false, true}));
}

TEST_F(KWinScript, activities_hideWindows)
{
    start(QStringLiteral("window('{1}', {activities: ['a', 'b']}), window('{2}', {activities: ['b']})"));
    EXPECT_EQ(seen(), (QList{true, false}));
}

TEST_F(KWinScript, windowThatCanNotBeJudged_countsAsSeen)
{
    start(QStringLiteral("Object.defineProperty(window('{1}'), 'minimized', {get: () => { throw 'gone'; }})"));
    EXPECT_EQ(seen(), (QList{true}));
}

TEST_F(KWinScript, endlessTitle_isToldWithBothItsEnds)
{
    start(QStringLiteral("window('{1}', {caption: 'Begin' + 'x'.repeat(90000) + 'End'})"));
    const auto told = news();
    ASSERT_TRUE(told);
    EXPECT_TRUE(told->windows.first().title.startsWith(QStringLiteral("Begin")));
    EXPECT_TRUE(told->windows.first().title.endsWith(QStringLiteral("End")));
}

TEST_F(KWinScript, whatCanNotBeTold_makesAllUnknown)
{
    start(QStringLiteral("window('{1}')"));
    ASSERT_TRUE(news());
    run(QStringLiteral("windows[0].frameGeometry = null; windows[0].frameGeometryChanged.emit(); turn()"));
    EXPECT_FALSE(news()) << "what was told before holds no more";
    run(QStringLiteral("windows[0].frameGeometry = place; windows[0].frameGeometryChanged.emit(); turn()"));
    EXPECT_TRUE(news());
}

TEST_F(KWinScript, listenerThatIsGone_isUnloadedFor)
{
    start();
    EXPECT_EQ(count("asked"), 0);
    run(QStringLiteral("windows.push(window('{1}')); workspace.clientAdded.emit(windows[0])"));
    EXPECT_EQ(run(QStringLiteral("asked.join()")).toString(), QStringLiteral(":1.7"));
    run(QStringLiteral("answer(true)"));
    EXPECT_EQ(count("unloaded"), 0);
    run(QStringLiteral("answer(false)"));
    EXPECT_EQ(run(QStringLiteral("unloaded.join(';')")).toString(), QStringLiteral("org.kde.KWin,unloadScript,ours"));
}

} // namespace
