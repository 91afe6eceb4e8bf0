#include "context/AccessibilityContextReader.h"

#include "base/Text.h"

#include <QHash>
#include <QTextBoundaryFinder>

#include <queue>

namespace ostrel {

namespace {

constexpr int searchedElements = 160;
constexpr int deepestExpandedLevel = 4;
constexpr int longestLabel = 80;

/// Counts what a reader takes for one character (a grapheme cluster): an accented letter or a flag is one, however many
/// code points it is made of.
bool isLongerThan(const QString &text, int characters)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    for (int count = 0; finder.toNextBoundary() >= 0; ++count) {
        if (count == characters)
            return true;
    }
    return false;
}

bool isTextInput(const std::optional<QString> &role)
{
    return role == QLatin1String("AXTextField") || role == QLatin1String("AXTextArea");
}

/// A breadth-first walk that never holds more elements than it may still hand out.
class BoundedWalk
{
public:
    struct Step {
        AccessibilityElementPtr element;
        int depth = 0;
    };

    explicit BoundedWalk(AccessibilityElementPtr root) { append(std::move(root), 0); }

    std::optional<Step> next()
    {
        if (m_queue.empty())
            return std::nullopt;
        Step step = std::move(m_queue.front());
        m_queue.pop();
        return step;
    }

    /// Those beyond the budget would never be reached, so they aren't kept.
    void appendChildren(const QList<AccessibilityElementPtr> &children, int depth)
    {
        for (const auto &child : children) {
            if (m_budget == 0)
                return;
            append(child, depth);
        }
    }

private:
    void append(AccessibilityElementPtr element, int depth)
    {
        if (!element)
            return;
        --m_budget;
        m_queue.push({std::move(element), depth});
    }

    int m_budget = searchedElements;
    std::queue<Step> m_queue;
};

} // namespace

ActiveApplicationContextDetails AccessibilityContextReader::read(qint32 processIdentifier,
                                                                 const ActiveApplicationContextDetails &base)
{
    const auto application = m_tree.application(processIdentifier);
    const auto window = elementAttribute(application, QStringLiteral("AXFocusedWindow"));
    // The page first: what may be kept depends on it, and to find the focus may use up the sample's time.
    const WebContext web = findWebContext(window ? window : application);
    const auto focused = focusedElement(application);
    return {.appName = base.appName,
            .website = ActiveApplicationContext::domain(web.url),
            .pageTitle = web.title,
            .windowTitle = stringAttribute(window, QStringLiteral("AXTitle")),
            .focusedElement = describeFocusedElement(focused),
            .windowFrame = frame(window),
            .pageAddress = web.url};
}

AccessibilityContextReader::WebContext AccessibilityContextReader::findWebContext(const AccessibilityElementPtr &root)
{
    const auto areas = root ? m_tree.find(root, QStringLiteral("AXWebArea")) : std::nullopt;
    if (areas)
        return firstDescribed(*areas);
    WebContext found;
    BoundedWalk walk(root);
    while (const auto step = walk.next()) {
        const auto role = stringAttribute(step->element, QStringLiteral("AXRole"));
        if (!found.url)
            found.url = stringAttribute(step->element, QStringLiteral("AXURL"));
        if (!found.url)
            found.url = stringAttribute(step->element, QStringLiteral("AXDocument"));
        if (!found.title && role == QLatin1String("AXWebArea"))
            found.title = stringAttribute(step->element, QStringLiteral("AXTitle"));
        if (found.url && found.title)
            return found;
        if (step->depth > deepestExpandedLevel)
            continue;
        const auto children = attribute(step->element, QStringLiteral("AXChildren"));
        if (const auto *list = std::get_if<QList<AccessibilityElementPtr>>(&children))
            walk.appendChildren(*list, step->depth + 1);
    }
    return found;
}

AccessibilityContextReader::WebContext
AccessibilityContextReader::firstDescribed(const QList<AccessibilityElementPtr> &webAreas)
{
    for (const AccessibilityElementPtr &area : webAreas.mid(0, searchedElements)) {
        WebContext web = {.url = stringAttribute(area, QStringLiteral("AXURL")),
                          .title = stringAttribute(area, QStringLiteral("AXTitle"))};
        if (!web.url)
            web.url = stringAttribute(area, QStringLiteral("AXDocument"));
        // Address and title of one page, never those of a page and of an advertisement in it.
        if (web.url || web.title)
            return web;
    }
    return {};
}

std::optional<QString> AccessibilityContextReader::describeFocusedElement(const AccessibilityElementPtr &element)
{
    if (!element)
        return std::nullopt;
    const auto role = stringAttribute(element, QStringLiteral("AXRole"));
    auto label = stringAttribute(element, QStringLiteral("AXTitle"));
    if (!label)
        label = stringAttribute(element, QStringLiteral("AXDescription"));
    if (label && isLongerThan(*label, longestLabel))
        label.reset();

    auto roleName = humanRoleName(role);
    if (isTextInput(role)) {
        const bool isSearch = label && containsCaseFolded(*label, QStringLiteral("search"));
        return isSearch ? QStringLiteral("search field") : roleName;
    }
    if (!label || role == QLatin1String("AXComboBox"))
        return roleName;
    if (roleName && !containsCaseFolded(*label, *roleName))
        return *label + u' ' + *roleName;
    return label;
}

std::optional<QString> AccessibilityContextReader::humanRoleName(const std::optional<QString> &role)
{
    static const QHash<QString, QString> names = {
        {QStringLiteral("AXButton"), QStringLiteral("button")},
        {QStringLiteral("AXCheckBox"), QStringLiteral("checkbox")},
        {QStringLiteral("AXComboBox"), QStringLiteral("combo box")},
        {QStringLiteral("AXLink"), QStringLiteral("link")},
        {QStringLiteral("AXMenuButton"), QStringLiteral("menu button")},
        {QStringLiteral("AXPopUpButton"), QStringLiteral("popup button")},
        {QStringLiteral("AXRadioButton"), QStringLiteral("radio button")},
        {QStringLiteral("AXSearchField"), QStringLiteral("search field")},
        {QStringLiteral("AXSlider"), QStringLiteral("slider")},
        {QStringLiteral("AXStaticText"), QStringLiteral("text")},
        {QStringLiteral("AXTabGroup"), QStringLiteral("tab group")},
        {QStringLiteral("AXTable"), QStringLiteral("table")},
        {QStringLiteral("AXTextArea"), QStringLiteral("text area")},
        {QStringLiteral("AXTextField"), QStringLiteral("text field")},
        {QStringLiteral("AXWebArea"), QStringLiteral("web page")},
    };
    const auto found = role ? names.find(*role) : names.end();
    return found == names.end() ? std::nullopt : std::optional(*found);
}

std::optional<QString> AccessibilityContextReader::stringValue(const AccessibilityValue &value)
{
    if (const auto *text = std::get_if<QString>(&value))
        return ActiveApplicationContext::normalize(*text);
    if (const auto *url = std::get_if<QUrl>(&value))
        return ActiveApplicationContext::normalize(url->toString(QUrl::FullyEncoded));
    if (const auto *styled = std::get_if<AttributedText>(&value))
        return ActiveApplicationContext::normalize(styled->plainText);
    return std::nullopt;
}

AccessibilityElementPtr AccessibilityContextReader::elementAttribute(const AccessibilityElementPtr &element,
                                                                     const QString &name)
{
    const auto value = attribute(element, name);
    const auto *found = std::get_if<AccessibilityElementPtr>(&value);
    return found ? *found : nullptr;
}

std::optional<QPointF> AccessibilityContextReader::pointAttribute(const AccessibilityElementPtr &element,
                                                                  const QString &name)
{
    const auto value = attribute(element, name);
    const auto *point = std::get_if<QPointF>(&value);
    return point ? std::optional(*point) : std::nullopt;
}

std::optional<QSizeF> AccessibilityContextReader::sizeAttribute(const AccessibilityElementPtr &element,
                                                                const QString &name)
{
    const auto value = attribute(element, name);
    const auto *size = std::get_if<QSizeF>(&value);
    return size ? std::optional(*size) : std::nullopt;
}

AccessibilityValue AccessibilityContextReader::attribute(const AccessibilityElementPtr &element, const QString &name)
{
    return element ? m_tree.attribute(element, name) : AccessibilityValue();
}

std::optional<QString> AccessibilityContextReader::stringAttribute(const AccessibilityElementPtr &element,
                                                                   const QString &name)
{
    return stringValue(attribute(element, name));
}

AccessibilityElementPtr AccessibilityContextReader::focusedElement(const AccessibilityElementPtr &application)
{
    const auto name = QStringLiteral("AXFocusedUIElement");
    if (auto focused = elementAttribute(application, name))
        return focused;
    return elementAttribute(m_tree.systemWide(), name);
}

std::optional<QRectF> AccessibilityContextReader::frame(const AccessibilityElementPtr &window)
{
    const auto position = pointAttribute(window, QStringLiteral("AXPosition"));
    const auto size = position ? sizeAttribute(window, QStringLiteral("AXSize")) : std::nullopt;
    return size ? std::optional(QRectF(*position, *size)) : std::nullopt;
}

} // namespace ostrel
