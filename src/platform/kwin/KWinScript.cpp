#include "platform/kwin/KWinScript.h"

namespace ostrel {

namespace {

// What is missing in one of the versions is looked for, never assumed. A window that can't be judged counts as seen.
// The ends of a title are as long as the privacy rules search.
constexpr const char *text = R"(
const listener = "@LISTENER@";
const name = "@NAME@";
const longestEnd = 2000;
const windowSignals = ["frameGeometryChanged", "captionChanged", "minimizedChanged", "windowClassChanged",
    "desktopFileNameChanged", "unresponsiveChanged", "transientChanged", "desktopPresenceChanged", "desktopsChanged", "activitiesChanged"];
const workspaceSignals = ["clientRemoved", "windowRemoved", "currentDesktopChanged", "currentActivityChanged",
    "numberScreensChanged", "screensChanged", "screenResized", "virtualScreenGeometryChanged"];

function textOf(value) {
    const whole = value === undefined || value === null ? "" : String(value);
    return whole.length <= 2 * longestEnd ? whole : whole.slice(0, longestEnd) + " " + whole.slice(-longestEnd);
}

function placeOf(rectangle) {
    return [rectangle.x, rectangle.y, rectangle.width, rectangle.height];
}

function allWindows() {
    return workspace.windowList ? workspace.windowList() : workspace.clientList();
}

function isOnDesktop(window) {
    const current = workspace.currentDesktop;
    if (window.onAllDesktops || current === undefined || current === null)
        return true;
    if (window.x11DesktopIds !== undefined)
        return window.x11DesktopIds.length === 0 || window.x11DesktopIds.indexOf(current) >= 0;
    return !window.desktops || window.desktops.length === 0 || window.desktops.some(each => each.id === current.id);
}

function isOnActivity(window) {
    const current = workspace.currentActivity;
    return !window.activities || window.activities.length === 0 || !current || window.activities.indexOf(current) >= 0;
}

function isSeen(window) {
    try {
        return !window.minimized && isOnDesktop(window) && isOnActivity(window);
    } catch (error) {
        return true;
    }
}

function described(window) {
    return {
        id: textOf(window.internalId),
        parent: window.transientFor ? textOf(window.transientFor.internalId) : "",
        pid: window.pid,
        instance: textOf(window.resourceName),
        class: textOf(window.resourceClass),
        entry: textOf(window.desktopFileName),
        title: textOf(window.caption),
        unresponsive: window.unresponsive === true,
        popup: window.popupWindow === true,
        seen: isSeen(window),
        place: placeOf(window.frameGeometry)
    };
}

function monitors() {
    if (workspace.screens)
        return Array.from(workspace.screens, screen => placeOf(screen.geometry));
    const places = [];
    for (let i = 0; i < workspace.numScreens; ++i)
        places.push(placeOf(workspace.clientArea(KWin.ScreenArea, i, workspace.currentDesktop)));
    return places;
}

function everything() {
    const windows = Array.from(allWindows()).filter(window => !window.deleted).map(described);
    return {monitors: monitors(), windows: windows};
}

// What was told before is wrong when this can't be told: then it is said that nothing is known.
function tell() {
    let news = {};
    try {
        news = everything();
    } catch (error) {
        print(name + ": " + error);
    }
    callDBus(listener, "@PATH@", "@INTERFACE@", "@METHOD@", JSON.stringify(news));
}

// Several changes at once, such as those of a new window, are told once.
let isWaiting = false;
let timer = null;
if (typeof QTimer !== "undefined") {
    timer = new QTimer();
    timer.singleShot = true;
    timer.interval = 0;
    timer.timeout.connect(() => {
        isWaiting = false;
        tell();
    });
}

function changed() {
    if (timer === null) {
        tell();
    } else if (!isWaiting) {
        isWaiting = true;
        timer.start();
    }
}

function connectTo(object, names) {
    for (const each of names) {
        if (object[each] && object[each].connect)
            object[each].connect(changed);
    }
}

function endWithListener() {
    callDBus("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner", listener, isThere => {
        if (!isThere)
            callDBus("org.kde.KWin", "/Scripting", "org.kde.kwin.Scripting", "unloadScript", name);
    });
}

function follow(window) {
    connectTo(window, windowSignals);
    changed();
}

for (const window of Array.from(allWindows()))
    follow(window);
(workspace.windowAdded || workspace.clientAdded).connect(window => {
    follow(window);
    endWithListener();
});
connectTo(workspace, workspaceSignals);
tell();
)";

} // namespace

QByteArray kwinScript(const QByteArray &listener, const QByteArray &name)
{
    return QByteArray(text)
        .replace("@LISTENER@", listener)
        .replace("@NAME@", name)
        .replace("@PATH@", KWinListener::path)
        .replace("@INTERFACE@", KWinListener::interface)
        .replace("@METHOD@", KWinListener::method);
}

} // namespace ostrel
