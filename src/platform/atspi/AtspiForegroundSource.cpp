#include "platform/atspi/AtspiForegroundSource.h"

#include "platform/atspi/AtspiApplications.h"
#include "platform/atspi/AtspiRoles.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <chrono>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr auto sampleLimit = 400ms;
constexpr qsizetype mostWindows = 32; ///< of one program

QString executableName(qint32 process)
{
    return QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(process))).fileName();
}

} // namespace

/// Finds the active window among those of all programs.
class AtspiForegroundSource::Reader
{
public:
    struct Found {
        qint32 process = 0;
        QString program; ///< as it calls itself; it may not
        QString title;
    };

    /// Without a word to any program.
    void reachBus() { m_bus.beginSample(QDeadlineTimer(sampleLimit)); }

    std::optional<Found> read()
    {
        reachBus();
        const QHash<QByteArray, qint32> &processes = m_applications.all();
        QList<AtspiReference> roots;
        for (auto it = processes.keyBegin(); it != processes.keyEnd(); ++it)
            roots.append({.name = *it, .path = "/org/a11y/atspi/accessible/root"});
        QList<AtspiReference> windows;
        for (const auto &children : m_queries.childrenOfEach(roots, mostWindows))
            windows += children;
        const auto active = onlyActiveOf(windows);
        if (!active)
            return std::nullopt;
        const AtspiReference program{.name = active->name, .path = roots.first().path};
        const QList<QString> names = m_queries.names({program, *active});
        return Found{.process = processes.value(active->name), .program = names[0], .title = names[1]};
    }

    bool isBusThere() const { return m_bus.isConnected(); }

private:
    std::optional<AtspiReference> onlyActiveOf(const QList<AtspiReference> &windows)
    {
        const QList<AtspiStates> states = m_queries.states(windows);
        const auto isActive = [](const AtspiStates &state) { return state.has(AtspiState::active); };
        if (std::ranges::count_if(states, isActive) != 1)
            return std::nullopt;
        return windows[std::ranges::find_if(states, isActive) - states.begin()];
    }

    AtspiBus m_bus;
    AtspiQueries m_queries{m_bus};
    AtspiApplications m_applications{m_bus, m_queries};
};

AtspiForegroundSource::AtspiForegroundSource(ApplicationLookup lookup)
    : m_lookup(std::move(lookup)), m_reader(std::make_unique<Reader>())
{}

AtspiForegroundSource::~AtspiForegroundSource() = default;

std::optional<ForegroundApplication> AtspiForegroundSource::frontmostApplication()
{
    m_title.reset();
    const auto found = m_reader->read();
    if (!found)
        return std::nullopt;
    const QString file = executableName(found->process);
    ForegroundApplication application = m_lookup(found->program.isEmpty() ? file : found->program);
    // "Firefox" runs as firefox-esr, which is the entry's name; but what an interpreter runs is not the interpreter.
    if (!application.bundleIdentifier && file.startsWith(found->program, Qt::CaseInsensitive)) {
        if (auto byFile = m_lookup(file); byFile.bundleIdentifier)
            application = std::move(byFile);
    }
    application.processIdentifier = found->process;
    application.windowClass = QStringList{found->program, file}.join(u' ').trimmed();
    if (!found->title.isEmpty())
        m_title = found->title;
    return application;
}

std::optional<FocusedWindow> AtspiForegroundSource::focusedWindow()
{
    return FocusedWindow{.title = m_title, .frame = std::nullopt};
}

QList<UnavailableFact> AtspiForegroundSource::unavailableFacts()
{
    QList<UnavailableFact> facts;
    if (!m_reader->isBusThere())
        m_reader->reachBus();
    if (!m_reader->isBusThere()) {
        const QString reason =
            QStringLiteral("this compositor doesn't tell other programs which window is in front, and "
                           "the accessibility bus, where programs do, can't be reached");
        facts = {{.fact = QStringLiteral("foreground application"), .reason = reason},
                 {.fact = QStringLiteral("window title"), .reason = reason}};
    }
    facts.append({.fact = QStringLiteral("window position"),
                  .reason = QStringLiteral("this compositor doesn't tell other programs where windows are")});
    facts.append({.fact = QStringLiteral("pointer position"),
                  .reason = QStringLiteral("this compositor doesn't tell other programs where the pointer is")});
    return facts;
}

} // namespace ostrel
