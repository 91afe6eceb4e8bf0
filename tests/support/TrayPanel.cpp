#include "support/TrayPanel.h"

#include "support/VirtualDesktop.h"

#include <QThread>

#include <algorithm>
#include <utility>

namespace ostrel {

namespace {

constexpr const char *accessible = "org.a11y.atspi.Accessible";
constexpr quint32 screenCoordinates = 0;

/// By their numbers on the bus.
enum State { Checked = 4, Enabled = 8, Focusable = 11, Focused = 12, Visible = 30 };

using Object = TrayPanelBus::Object;
using Question = TrayPanelBus::Question;

Question propertyOf(const Object &object, const char *name)
{
    return {.object = object,
            .interface = "org.freedesktop.DBus.Properties",
            .method = "Get",
            .answerType = "(v)",
            .arguments = g_variant_new("(ss)", accessible, name)};
}

Question placeOf(const Object &object)
{
    return {.object = object,
            .interface = "org.a11y.atspi.Component",
            .method = "GetExtents",
            .answerType = "((iiii))",
            .arguments = g_variant_new("(u)", screenCoordinates)};
}

QString textIn(GVariant *answer)
{
    if (answer == nullptr)
        return {};
    const auto text = TrayPanelBus::valueIn(answer);
    return g_variant_is_of_type(text.get(), G_VARIANT_TYPE_STRING) != FALSE
               ? QString::fromUtf8(g_variant_get_string(text.get(), nullptr))
               : QString();
}

QRect placeIn(GVariant *answer)
{
    gint x = 0;
    gint y = 0;
    gint width = 0;
    gint height = 0;
    if (answer != nullptr)
        g_variant_get(answer, "((iiii))", &x, &y, &width, &height);
    return {x, y, width, height};
}

quint64 statesIn(GVariant *answer)
{
    if (answer == nullptr)
        return 0;
    const auto words = TrayPanelBus::valueIn(answer);
    quint64 bits = 0;
    for (gsize i = 0; i < g_variant_n_children(words.get()); ++i) {
        guint32 word = 0;
        g_variant_get_child(words.get(), i, "u", &word);
        bits |= quint64(word) << (32 * i);
    }
    return bits;
}

bool has(quint64 states, State state)
{
    return ((states >> state) & 1U) != 0;
}

/// @param name with asterisks in the place of beginning and end that are left open
bool isCalled(const TrayPanel::Part &part, const QString &name, const QString &role)
{
    if (!role.isEmpty() && part.role != role)
        return false;
    const bool isOpenAtFront = name.startsWith(u'*');
    const QStringView wanted = QStringView(name).sliced(isOpenAtFront ? 1 : 0);
    if (!wanted.endsWith(u'*'))
        return isOpenAtFront ? part.name.endsWith(wanted) : part.name == wanted;
    return isOpenAtFront ? part.name.contains(wanted.chopped(1)) : part.name.startsWith(wanted.chopped(1));
}

} // namespace

bool TrayPanel::Part::isFocused() const
{
    return has(states, Focused);
}

bool TrayPanel::Part::isFocusable() const
{
    return has(states, Focusable);
}

bool TrayPanel::Part::isEnabled() const
{
    return has(states, Enabled);
}

bool TrayPanel::Part::isChecked() const
{
    return has(states, Checked);
}

TrayPanel::TrayPanel(VirtualDesktop &desktop, qint64 processIdentifier)
    : m_desktop(desktop), m_processIdentifier(processIdentifier)
{}

std::vector<quint64> TrayPanel::statesOf(const QList<Object> &objects)
{
    std::vector<Question> questions;
    questions.reserve(size_t(objects.size()));
    for (const Object &object : objects)
        questions.push_back({.object = object, .interface = accessible, .method = "GetState", .answerType = "(au)"});
    std::vector<quint64> states;
    for (const auto &answer : m_bus.ask(questions))
        states.push_back(statesIn(answer.get()));
    return states;
}

/// Level by level, for each level is two waits however many objects are in it; but in the order of the tree.
QList<Object> TrayPanel::visibleObjects()
{
    struct Placed {
        Object object;
        QList<int> way; ///< by which child of which child one comes to it
    };
    std::vector<Placed> found;
    std::vector<Placed> level{{.object = {.program = m_program, .path = "/org/a11y/atspi/accessible/root"}, .way = {}}};
    while (!level.empty()) {
        std::vector<Question> questions;
        for (const Placed &parent : level)
            questions.push_back(
                {.object = parent.object, .interface = accessible, .method = "GetChildren", .answerType = "(a(so))"});
        const auto answers = m_bus.ask(questions);
        std::vector<Placed> next;
        QList<Object> children;
        for (size_t i = 0; i < level.size(); ++i) {
            const auto told = answers.at(i) ? TrayPanelBus::objectsIn(answers.at(i).get()) : QList<Object>();
            for (int j = 0; j < told.size(); ++j)
                next.push_back({.object = told.at(j), .way = level.at(i).way + QList<int>{j}});
            children += told;
        }
        const auto states = statesOf(children);
        std::vector<Placed> visible;
        for (size_t i = 0; i < next.size(); ++i) {
            if (has(states.at(i), Visible))
                visible.push_back(next.at(i));
        }
        found.insert(found.end(), visible.begin(), visible.end());
        level = std::move(visible);
    }
    std::ranges::sort(found, std::ranges::lexicographical_compare, &Placed::way);
    QList<Object> objects;
    for (const Placed &placed : found)
        objects.append(placed.object);
    return objects;
}

QList<TrayPanel::Part> TrayPanel::parts()
{
    if (m_program.isEmpty())
        m_program = m_bus.programOf(m_processIdentifier);
    if (m_program.isEmpty())
        return {};
    constexpr size_t questionsEach = 4;
    const QList<Object> objects = visibleObjects();
    std::vector<Question> questions;
    for (const Object &object : objects) {
        questions.push_back({.object = object, .interface = accessible, .method = "GetRoleName", .answerType = "(s)"});
        questions.push_back(propertyOf(object, "Name"));
        questions.push_back(propertyOf(object, "Description"));
        questions.push_back(placeOf(object));
    }
    const auto answers = m_bus.ask(questions);
    const auto states = statesOf(objects);
    QList<Part> parts;
    for (qsizetype i = 0; i < objects.size(); ++i) {
        const auto *const answer = &answers.at(size_t(i) * questionsEach);
        parts.append({.object = objects.at(i),
                      .role = textIn(answer[0].get()),
                      .name = textIn(answer[1].get()),
                      .description = textIn(answer[2].get()),
                      .place = placeIn(answer[3].get()),
                      .states = states.at(size_t(i))});
    }
    return parts;
}

QStringList TrayPanel::names()
{
    QStringList names;
    for (const Part &part : parts())
        names.append(part.role + QStringLiteral(": ") + part.name);
    return names;
}

std::optional<TrayPanel::Part> TrayPanel::find(const QString &name, const QString &role)
{
    const QList<Part> all = parts();
    const auto found = std::ranges::find_if(all, [&](const Part &part) { return isCalled(part, name, role); });
    return found == all.cend() ? std::nullopt : std::optional(*found);
}

TrayPanel::Part TrayPanel::waitFor(const QString &name, const QString &role, std::chrono::milliseconds patience)
{
    std::optional<Part> part;
    waitUntilHolds(QStringLiteral("\"%1\"").arg(name), patience, [&] {
        part = find(name, role);
        return part.has_value();
    });
    return *part;
}

void TrayPanel::waitUntilGone(const QString &name)
{
    waitUntilHolds(QStringLiteral("\"%1\" to go").arg(name), defaultPatience, [&] { return !shows(name); });
}

void TrayPanel::waitUntilHolds(const QString &what, std::chrono::milliseconds patience,
                               const std::function<bool()> &holds)
{
    QDeadlineTimer deadline(patience);
    while (!holds()) {
        if (deadline.hasExpired())
            failTest(
                QStringLiteral("Timed out: waiting for %1 among: %2 (the program is %3 on the bus, its window is %4)")
                    .arg(what, names().join(QStringLiteral(" | ")),
                         m_program.isEmpty() ? QStringLiteral("not") : QString::fromLatin1(m_program),
                         window().isEmpty() ? QStringLiteral("not shown") : QStringLiteral("shown")));
        QThread::msleep(20);
    }
}

void TrayPanel::press(const QString &name)
{
    std::optional<Part> part;
    waitUntilHolds(QStringLiteral("\"%1\" to be there to be pressed").arg(name), defaultPatience, [&] {
        const QList<Part> all = parts();
        const auto found = std::ranges::find_if(all, [&](const Part &candidate) {
            return isCalled(candidate, name, {}) && candidate.isEnabled() &&
                   candidate.role != QStringLiteral("label") && candidate.role != QStringLiteral("heading") &&
                   candidate.role != QStringLiteral("panel");
        });
        if (found != all.cend())
            part = *found;
        return part.has_value();
    });
    m_desktop.click(broughtIntoView(*part).center());
}

void TrayPanel::fill(const QString &name, const QString &text)
{
    const Part field = waitFor(name, QStringLiteral("text"));
    clickInto(field);
    m_desktop.key(QStringLiteral("ctrl+a"));
    m_desktop.type(text);
    waitUntilHolds(QStringLiteral("\"%1\" to hold what was typed").arg(name), defaultPatience,
                   [&] { return textOf(field) == text; });
}

void TrayPanel::fillSecret(const QString &name, const QString &text)
{
    clickInto(waitFor(name));
    m_desktop.type(text);
}

void TrayPanel::clickInto(const Part &field)
{
    // Of a long text only the beginning need be in view.
    constexpr QPoint firstLetter(14, 14);
    m_desktop.click(broughtIntoView(field).topLeft() + firstLetter);
}

QString TrayPanel::textOf(const Part &part)
{
    const auto text = m_bus.ask({.object = part.object,
                                 .interface = "org.a11y.atspi.Text",
                                 .method = "GetText",
                                 .answerType = "(s)",
                                 .arguments = g_variant_new("(ii)", 0, -1)});
    return textIn(text.get());
}

QRect TrayPanel::placeOnceStill(const Object &object)
{
    QRect place;
    waitUntil(QStringLiteral("a control to stand still"), defaultPatience, [&] {
        const QRect before = std::exchange(place, placeIn(m_bus.ask(placeOf(object)).get()));
        QThread::msleep(30); // longer than a frame of a movement; a slower machine only waits for another round
        return !place.isEmpty() && place == before;
    });
    return place;
}

QRect TrayPanel::window()
{
    const auto frame = find(QStringLiteral("Tamsk Ostrel"), QStringLiteral("frame"));
    return frame ? frame->place : QRect();
}

QRect TrayPanel::broughtIntoView(const Part &part)
{
    constexpr int mostTurns = 20;
    constexpr int pageMargin = 6; // beside the fields, which scroll by themselves
    constexpr int headerHeight = 48;
    constexpr int mostOfAControl = 40;
    const QRect panel = window();
    QRect place = placeOnceStill(part.object);
    // The foot of a page may lie over what is further down, so that being within the window is not enough.
    for (int turn = 0; turn < mostTurns; ++turn) {
        const int y = place.top() + std::min(place.height(), mostOfAControl) / 2;
        if (y >= panel.top() + headerHeight && y <= panel.center().y())
            break;
        m_desktop.click({panel.left() + pageMargin, panel.center().y()},
                        y < panel.center().y() ? VirtualDesktop::WheelUp : VirtualDesktop::WheelDown);
        const QRect before = std::exchange(place, placeOnceStill(part.object));
        if (place == before)
            break;
    }
    return place;
}

} // namespace ostrel
