#include "platform/devtools/Tabs.h"

#include "base/Text.h"

#include <QJsonArray>

#include <algorithm>
#include <array>

namespace ostrel {

namespace {

/// Longer than any address that names a site; pictures and documents within an address are longer.
constexpr qsizetype longestAddress = 4096;

enum class TitleFit {
    None,
    Exact, ///< only the browser's name follows
    Loose, ///< something else stands before the browser's name, such as a profile's
};

/// A title as it compares: a window's and a page's differ in blanks and in invisible marks, such as those that set the
/// writing direction.
QString comparable(QString title)
{
    title.removeIf([](QChar c) { return c.category() == QChar::Other_Format; });
    return splitWords(title).join(u' ');
}

/// What browsers put between the parts of a window's title, depending on the language.
constexpr std::array<QStringView, 3> separators = {u" - ", u" \u2013 ", u" \u2014 "};

qsizetype separatorCount(QStringView text)
{
    qsizetype count = 0;
    for (const QStringView separator : separators)
        count += text.count(separator);
    return count;
}

TitleFit fitOf(const QString &window, const QString &page)
{
    if (page.isEmpty() || !window.startsWith(page))
        return TitleFit::None;
    if (window.size() == page.size())
        return TitleFit::Exact;
    const QStringView rest = QStringView(window).sliced(page.size());
    if (std::ranges::none_of(separators, [&](QStringView separator) { return rest.startsWith(separator); }))
        return TitleFit::None;
    switch (separatorCount(rest)) {
    case 1:
        return TitleFit::Exact;
    case 2:
        return TitleFit::Loose;
    default:
        return TitleFit::None;
    }
}

/// The only tab of which something holds.
std::optional<Tab> onlyTab(const QList<Tab> &tabs, const QList<TabState> &states, bool TabState::*holds)
{
    std::optional<Tab> found;
    for (qsizetype i = 0; i < tabs.size(); ++i) {
        if (!(states[i].*holds))
            continue;
        if (found)
            return std::nullopt;
        found = tabs[i];
    }
    return found;
}

} // namespace

std::optional<QList<Tab>> tabsIn(const QJsonObject &answer)
{
    const QJsonValue targets = answer.value(QStringLiteral("targetInfos"));
    if (!targets.isArray())
        return std::nullopt;
    QList<Tab> tabs;
    for (const QJsonValue target : targets.toArray()) {
        const auto text = [&target](QLatin1StringView key) { return target.toObject().value(key).toString(); };
        Tab tab{.id = text(QLatin1StringView("targetId")),
                .url = text(QLatin1StringView("url")),
                .title = text(QLatin1StringView("title")),
                .profile = text(QLatin1StringView("browserContextId"))};
        if (text(QLatin1StringView("type")) == QLatin1String("page") && !tab.id.isEmpty())
            tabs.append(std::move(tab));
    }
    return tabs;
}

TabCandidates candidatesFor(const std::optional<QString> &windowTitle, const QList<Tab> &tabs)
{
    const QString window = comparable(windowTitle.value_or(QString()));
    if (window.isEmpty())
        return {.tabs = tabs, .isTitleEnough = false, .needsFocus = false};
    TabCandidates exact{.tabs = {}, .isTitleEnough = true, .needsFocus = false};
    TabCandidates loose{.tabs = {}, .isTitleEnough = false, .needsFocus = true};
    for (const Tab &tab : tabs) {
        const TitleFit fit = fitOf(window, comparable(tab.title));
        if (fit != TitleFit::None)
            (fit == TitleFit::Exact ? exact : loose).tabs.append(tab);
    }
    return exact.tabs.isEmpty() ? loose : exact;
}

std::optional<Tab> frontTab(const TabCandidates &candidates, const QList<TabState> &states)
{
    if (std::ranges::any_of(states, &TabState::isFocused) || candidates.needsFocus)
        return onlyTab(candidates.tabs, states, &TabState::isFocused);
    // The keyboard may be in the address bar. Then the one that shows, where only one of them does.
    return onlyTab(candidates.tabs, states, &TabState::isVisible);
}

QString tabText(const Tab &tab)
{
    const bool isAddress = tab.url.size() <= longestAddress && std::ranges::none_of(tab.url, isNewline);
    return (isAddress ? tab.url : QString()) + u'\n' + splitWords(tab.title).join(u' ');
}

} // namespace ostrel
