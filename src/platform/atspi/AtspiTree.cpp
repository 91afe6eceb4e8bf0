#include "platform/atspi/AtspiTree.h"

#include "platform/atspi/AtspiApplications.h"
#include "platform/atspi/AtspiRoles.h"
#include "platform/atspi/AtspiSearch.h"

#include <algorithm>

namespace ostrel {

namespace {

constexpr qsizetype mostWindows = 32;
/// More elements than this are never looked at in a sample.
constexpr qsizetype mostChildren = 160;

/// A program, or an object of one, with what has been read of it in this sample.
struct AtspiElement final : AccessibilityElement {
    AtspiReference reference;
    bool isApplication = false;
    QList<AtspiReference> windows; ///< of an application
    mutable std::optional<AccessibilityElementPtr> activeWindow;
    mutable std::optional<AtspiControl> control; ///< of the one that has the focus
    mutable std::optional<AtspiDetails> details;
    mutable std::optional<quint32> role;
    mutable std::optional<AtspiAttributes> documentAttributes;
};

std::shared_ptr<AtspiElement> elementAt(const AtspiReference &reference)
{
    auto element = std::make_shared<AtspiElement>();
    element->reference = reference;
    return element;
}

AccessibilityValue valueOf(const QString &text)
{
    return text.isEmpty() ? AccessibilityValue() : AccessibilityValue(text);
}

/// The position of the only one that fulfils the condition.
template <class T>
std::optional<qsizetype> onlyOne(const QList<T> &list, const std::function<bool(const T &)> &condition)
{
    if (std::ranges::count_if(list, condition) != 1)
        return std::nullopt;
    return std::ranges::find_if(list, condition) - list.begin();
}

AtspiRoleTraits traitsIn(const AtspiDetails &details)
{
    const AtspiAttributes &attributes = details.attributes;
    return {.isMultiLine = details.states.has(AtspiState::multiLine),
            .isSearchField =
                attributes.value(QStringLiteral("text-input-type")) == QLatin1String("search") ||
                attributes.value(QStringLiteral("xml-roles")).split(u' ').contains(QLatin1String("searchbox")),
            .opensMenu = attributes.value(QStringLiteral("haspopup")) == QLatin1String("menu")};
}

} // namespace

/// Reads the attributes; each function takes one of an element.
class AtspiTree::Reader
{
public:
    using Element = AtspiElement;

    explicit Reader(Clock now) : search(bus, queries, std::move(now)) {}

    AtspiBus bus;
    AtspiQueries queries{bus};
    AtspiApplications applications{bus, queries};
    AtspiSearch search;

    AccessibilityValue role(const Element &element);
    AccessibilityValue title(const Element &element);
    AccessibilityValue description(const Element &element);
    AccessibilityValue url(const Element &element) { return documentAttribute(element, QStringLiteral("URI")); }
    AccessibilityValue document(const Element &element) { return documentAttribute(element, QStringLiteral("DocURL")); }
    AccessibilityValue children(const Element &element);
    AccessibilityValue focusedWindow(const Element &element);
    AccessibilityValue focusedElement(const Element &element);

    AccessibilityElementPtr activeWindow(const Element &application);

private:
    AccessibilityElementPtr findActiveWindow(const QList<AtspiReference> &windows);
    std::optional<quint32> roleNumber(const Element &element);
    const AtspiDetails &detailsOf(const Element &element);
    AccessibilityValue documentAttribute(const Element &element, const QString &name);
};

AccessibilityElementPtr AtspiTree::Reader::activeWindow(const Element &application)
{
    if (!application.activeWindow)
        application.activeWindow = findActiveWindow(application.windows);
    return *application.activeWindow;
}

AccessibilityElementPtr AtspiTree::Reader::findActiveWindow(const QList<AtspiReference> &windows)
{
    const QList<AtspiStates> states = queries.states(windows);
    const auto isActive = [](const AtspiStates &state) { return state.has(AtspiState::active); };
    if (const auto active = onlyOne<AtspiStates>(states, isActive))
        return elementAt(windows[*active]);
    if (std::ranges::any_of(states, isActive))
        return nullptr;
    // A program may begin to tell only when another of its windows becomes active. With a single window there is
    // nothing to tell; those without a name are pop-ups that are kept for later.
    const auto hasName = [](const QString &name) { return !name.isEmpty(); };
    const auto named = onlyOne<QString>(queries.names(windows), hasName);
    return named ? elementAt(windows[*named]) : nullptr;
}

std::optional<quint32> AtspiTree::Reader::roleNumber(const Element &element)
{
    if (element.control)
        return element.control->role;
    if (!element.role)
        element.role = queries.role(element.reference);
    return element.role;
}

const AtspiDetails &AtspiTree::Reader::detailsOf(const Element &element)
{
    if (!element.details)
        element.details = queries.details(element.reference);
    return *element.details;
}

AccessibilityValue AtspiTree::Reader::role(const Element &element)
{
    if (element.isApplication)
        return QStringLiteral("AXApplication");
    const auto number = roleNumber(element);
    if (!number)
        return {};
    AtspiRoleTraits traits;
    if (hasTraits(*number))
        traits = traitsIn(detailsOf(element));
    return valueOf(accessibilityRoleName(*number, traits));
}

AccessibilityValue AtspiTree::Reader::title(const Element &element)
{
    AccessibilityValue documentTitle = documentAttribute(element, QStringLiteral("Title"));
    if (!std::holds_alternative<std::monostate>(documentTitle))
        return documentTitle;
    return valueOf(element.control ? element.control->name : queries.names({element.reference}).first());
}

AccessibilityValue AtspiTree::Reader::description(const Element &element)
{
    return valueOf(queries.description(element.reference));
}

/// Only web pages have any, so nothing else is asked.
AccessibilityValue AtspiTree::Reader::documentAttribute(const Element &element, const QString &name)
{
    const bool isWindow = !element.control && !element.role && !element.documentAttributes;
    if (element.isApplication || isWindow || roleNumber(element) != AtspiRole::documentWeb)
        return {};
    if (!element.documentAttributes)
        element.documentAttributes = queries.documentAttributes(element.reference);
    return valueOf(element.documentAttributes->value(name));
}

AccessibilityValue AtspiTree::Reader::children(const Element &element)
{
    QList<AccessibilityElementPtr> children;
    if (element.isApplication) {
        if (const auto window = activeWindow(element))
            children.append(window);
        return children;
    }
    for (const AtspiReference &reference : queries.firstChildren(element.reference, mostChildren))
        children.append(elementAt(reference));
    return children;
}

AccessibilityValue AtspiTree::Reader::focusedWindow(const Element &element)
{
    const auto window = element.isApplication ? activeWindow(element) : nullptr;
    return window ? AccessibilityValue(window) : AccessibilityValue();
}

AccessibilityValue AtspiTree::Reader::focusedElement(const Element &element)
{
    const auto window = element.isApplication ? activeWindow(element) : nullptr;
    if (!window)
        return {};
    auto found = search.focused(static_cast<const Element &>(*window).reference);
    if (!found)
        return {};
    auto focused = elementAt(found->reference);
    focused->control = std::move(found->control);
    focused->details = std::move(found->details);
    return AccessibilityElementPtr(std::move(focused));
}

AtspiTree::AtspiTree(Clock now) : m_reader(std::make_unique<Reader>(std::move(now))) {}

AtspiTree::~AtspiTree() = default;

void AtspiTree::beginSample(QDeadlineTimer deadline)
{
    m_reader->bus.beginSample(deadline);
}

void AtspiTree::endSampling()
{
    m_reader->search.endSampling();
}

AccessibilityElementPtr AtspiTree::application(qint32 processIdentifier)
{
    constexpr int attempts = 2; // the second after a connection that was known has ended
    for (int i = 0; i < attempts; ++i) {
        bool anyGone = false;
        for (const QByteArray &name : m_reader->applications.namesOf(processIdentifier)) {
            m_reader->bus.askAhead(name);
            auto element = elementAt({.name = name, .path = "/org/a11y/atspi/accessible/root"});
            element->isApplication = true;
            const auto outcome = m_reader->queries.readChildren(element->reference, element->windows, mostWindows);
            if (!element->windows.isEmpty())
                return element;
            anyGone = anyGone || outcome == AtspiBus::Outcome::Gone;
        }
        if (!anyGone)
            break;
        m_reader->applications.forget(processIdentifier);
    }
    return nullptr;
}

AccessibilityValue AtspiTree::attribute(const AccessibilityElementPtr &element, const QString &name)
{
    using Read = AccessibilityValue (Reader::*)(const AtspiElement &);
    static const QHash<QString, Read> readers{
        {QStringLiteral("AXRole"), &Reader::role},
        {QStringLiteral("AXTitle"), &Reader::title},
        {QStringLiteral("AXDescription"), &Reader::description},
        {QStringLiteral("AXURL"), &Reader::url},
        {QStringLiteral("AXDocument"), &Reader::document},
        {QStringLiteral("AXChildren"), &Reader::children},
        {QStringLiteral("AXFocusedWindow"), &Reader::focusedWindow},
        {QStringLiteral("AXFocusedUIElement"), &Reader::focusedElement},
    };
    const Read read = readers.value(name, nullptr);
    const auto *const own = dynamic_cast<const AtspiElement *>(element.get());
    return read && own ? (*m_reader.*read)(*own) : AccessibilityValue();
}

std::optional<QList<AccessibilityElementPtr>> AtspiTree::find(const AccessibilityElementPtr &root, const QString &role)
{
    const auto *const own = dynamic_cast<const AtspiElement *>(root.get());
    if (!own || role != QLatin1String("AXWebArea"))
        return std::nullopt;
    const AccessibilityElementPtr window = own->isApplication ? m_reader->activeWindow(*own) : root;
    if (!window)
        return QList<AccessibilityElementPtr>();
    const auto found = m_reader->search.pages(static_cast<const AtspiElement &>(*window).reference);
    if (!found)
        return std::nullopt;
    QList<AccessibilityElementPtr> documents;
    for (const AtspiPage &page : *found) {
        auto document = elementAt(page.reference);
        document->role = AtspiRole::documentWeb;
        document->documentAttributes = page.attributes;
        documents.append(std::move(document));
    }
    return documents;
}

} // namespace ostrel
