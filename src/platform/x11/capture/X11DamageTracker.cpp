#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11ChangeTracker.h"

#include <utility>
#include <xcb/damage.h>
#include <xcb/xfixes.h>

namespace ostrel {

namespace {

/// The server refuses every other request of these extensions until it has been asked for their versions.
bool hasExtensions(X11Connection &connection)
{
    constexpr uint32_t firstWithRegions = 2;
    if (!connection.firstEventOf(xcb_damage_id) || !connection.firstEventOf(xcb_xfixes_id))
        return false;
    const auto damage = xcb_damage_query_version(connection.get(), 1, 1);
    const auto fixes = xcb_xfixes_query_version(connection.get(), 5, 0);
    const auto damageVersion = connection.reply<xcb_damage_query_version_reply>(damage);
    const auto fixesVersion = connection.reply<xcb_xfixes_query_version_reply>(fixes);
    return damageVersion && fixesVersion && fixesVersion->major_version >= firstWithRegions;
}

std::vector<QRect> rectanglesOf(const xcb_xfixes_fetch_region_reply_t &answer)
{
    const xcb_rectangle_t *rectangles = xcb_xfixes_fetch_region_rectangles(&answer);
    const int count = xcb_xfixes_fetch_region_rectangles_length(&answer);
    std::vector<QRect> found;
    found.reserve(std::size_t(count));
    for (int i = 0; i < count; ++i)
        found.emplace_back(rectangles[i].x, rectangles[i].y, rectangles[i].width, rectangles[i].height);
    return found;
}

/// Damage of the root window covers all that is drawn on the screen, by whatever window. One event tells when it
/// begins; from then on it is gathered in the server until it is taken away: having every rectangle reported costs a
/// server with a busy client more than the grabs that it saves.
class DamageTracker final : public X11ChangeTracker
{
public:
    /// Two resources of the server; they end with the connection at the latest.
    /// @param connection to a server that has the extensions
    explicit DamageTracker(std::shared_ptr<X11Connection> connection)
        : m_connection(std::move(connection)),
          m_damageEvent(std::uint8_t(*m_connection->firstEventOf(xcb_damage_id) + XCB_DAMAGE_NOTIFY)),
          m_damage(xcb_generate_id(server())), m_region(xcb_generate_id(server())),
          m_events(m_connection, [this](const auto &event) { handle(event); })
    {}
    DamageTracker(const DamageTracker &) = delete;
    DamageTracker &operator=(const DamageTracker &) = delete;
    ~DamageTracker() override
    {
        xcb_damage_destroy(server(), m_damage);
        xcb_xfixes_destroy_region(server(), m_region);
        xcb_flush(server());
    }

    bool create()
    {
        const auto damage =
            xcb_damage_create_checked(server(), m_damage, m_connection->root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
        const auto region = xcb_xfixes_create_region_checked(server(), m_region, 0, nullptr);
        const bool hasDamage = m_connection->check(damage);
        return m_connection->check(region) && hasDamage;
    }

    std::optional<std::vector<QRect>> takeChanges() override
    {
        m_connection->dispatchEvents();
        // Before the question: an event that comes after its answer is of the next damage.
        if (!std::exchange(m_hasBegun, false))
            return std::vector<QRect>();
        const auto subtracted = xcb_damage_subtract_checked(server(), m_damage, XCB_NONE, m_region);
        const auto fetched = xcb_xfixes_fetch_region(server(), m_region);
        const auto answer = m_connection->reply<xcb_xfixes_fetch_region_reply>(fetched);
        // Where the first request failed, the second one has told the region of the time before.
        if (!m_connection->checkAnswered(subtracted) || !answer) {
            m_hasBegun = true;
            return std::nullopt;
        }
        return rectanglesOf(*answer);
    }

private:
    xcb_connection_t *server() const { return m_connection->get(); }

    void handle(const xcb_generic_event_t &event)
    {
        if (typeOf(event) == m_damageEvent &&
            reinterpret_cast<const xcb_damage_notify_event_t &>(event).damage == m_damage)
            m_hasBegun = true;
    }

    const std::shared_ptr<X11Connection> m_connection;
    const std::uint8_t m_damageEvent;
    const xcb_damage_damage_t m_damage;
    const xcb_xfixes_region_t m_region;
    bool m_hasBegun = true; ///< the first question is about all of the screen
    const X11Subscription m_events;
};

} // namespace

std::unique_ptr<X11ChangeTracker> makeDamageTracker(std::shared_ptr<X11Connection> connection)
{
    if (!hasExtensions(*connection))
        return nullptr;
    auto tracker = std::make_unique<DamageTracker>(std::move(connection));
    return tracker->create() ? std::move(tracker) : nullptr;
}

} // namespace ostrel
