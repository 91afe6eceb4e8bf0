#include "platform/x11/facts/X11Extensions.h"

#include "platform/x11/base/X11Connection.h"
#include "platform/x11/capture/X11SharedSegment.h"

#include <tuple>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

namespace ostrel {

namespace {

bool isPresent(const X11Connection &connection, xcb_extension_t &extension)
{
    const auto *data = xcb_get_extension_data(connection.get(), &extension);
    return data && data->present;
}

} // namespace

std::optional<ExtensionFacts> trySharedMemory(const std::shared_ptr<X11Connection> &connection)
{
    if (!isPresent(*connection, xcb_shm_id))
        return std::nullopt;
    ExtensionFacts facts;
    if (const auto version = connection->reply<xcb_shm_query_version_reply>(xcb_shm_query_version(connection->get())))
        facts = {.major = version->major_version, .minor = version->minor_version};
    constexpr std::size_t onePixel = 4;
    facts.works = X11SharedSegment::attach(connection, onePixel) != nullptr;
    return facts;
}

std::optional<ExtensionFacts> tryDamage(X11Connection &connection)
{
    if (!isPresent(connection, xcb_damage_id))
        return std::nullopt;
    ExtensionFacts facts;
    if (const auto version =
            connection.reply<xcb_damage_query_version_reply>(xcb_damage_query_version(connection.get(), 1, 1)))
        facts = {.major = version->major_version, .minor = version->minor_version};
    const xcb_damage_damage_t damage = xcb_generate_id(connection.get());
    facts.works = connection.check(
        xcb_damage_create_checked(connection.get(), damage, connection.root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY));
    if (facts.works)
        xcb_damage_destroy(connection.get(), damage);
    return facts;
}

std::optional<ExtensionFacts> tryCursor(X11Connection &connection)
{
    if (!isPresent(connection, xcb_xfixes_id))
        return std::nullopt;
    ExtensionFacts facts;
    if (const auto version =
            connection.reply<xcb_xfixes_query_version_reply>(xcb_xfixes_query_version(connection.get(), 5, 0)))
        facts = {.major = version->major_version, .minor = version->minor_version};
    facts.works =
        connection.reply<xcb_xfixes_get_cursor_image_reply>(xcb_xfixes_get_cursor_image(connection.get())) != nullptr;
    return facts;
}

std::optional<ExtensionFacts> tryMonitors(X11Connection &connection)
{
    if (!isPresent(connection, xcb_randr_id))
        return std::nullopt;
    ExtensionFacts facts;
    if (const auto version =
            connection.reply<xcb_randr_query_version_reply>(xcb_randr_query_version(connection.get(), 1, 5)))
        facts = {.major = version->major_version, .minor = version->minor_version};
    constexpr uint8_t activeOnly = 1;
    facts.works = std::tuple(facts.major, facts.minor) >= std::tuple(1u, 5u) &&
                  connection.reply<xcb_randr_get_monitors_reply>(
                      xcb_randr_get_monitors(connection.get(), connection.root(), activeOnly)) != nullptr;
    return facts;
}

} // namespace ostrel
