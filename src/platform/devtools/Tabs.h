#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

namespace ostrel {

/// A tab of a browser, or a window that shows a page and has no tabs.
struct Tab {
    QString id;
    QString url;
    QString title;
    QString profile; ///< the protocol's name for the profile that it belongs to

    bool operator==(const Tab &) const = default;
};

/// What a page says about itself.
struct TabState {
    bool isVisible = false; ///< in front of the other tabs of its window
    bool isFocused = false; ///< it has the keyboard
};

/// The tabs that may be the one in front.
struct TabCandidates {
    QList<Tab> tabs;
    /// A single one is the tab in front, and the pages need not be asked.
    bool isTitleEnough = false;
    /// Their titles fit loosely, so that only the keyboard proves it.
    bool needsFocus = false;
};

/// The pages in the answer to "Target.getTargets". Those that make no sense are left out.
/// @return nothing when it is no such answer
std::optional<QList<Tab>> tabsIn(const QJsonObject &answer);

/// The tabs whose title the window shows in front of the browser's name ("Title - Browser"), or in front of a profile's
/// and the browser's; all of them where the window's title is not known.
TabCandidates candidatesFor(const std::optional<QString> &windowTitle, const QList<Tab> &tabs);

/// Which of the candidates is in front, from what their pages say.
/// @param states one for each candidate
/// @return nothing unless it is certain
std::optional<Tab> frontTab(const TabCandidates &candidates, const QList<TabState> &states);

/// "address\ntitle". An address that is too long to be one, or breaks the line, is left empty.
QString tabText(const Tab &tab);

} // namespace ostrel
