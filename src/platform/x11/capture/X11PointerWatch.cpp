#include "platform/x11/capture/X11PointerWatch.h"

#include <cstddef>
#include <string_view>
#include <utility>

namespace ostrel {

namespace {

xcb_sync_int64_t toWire(std::chrono::milliseconds time)
{
    const auto bits = std::uint64_t(time.count());
    return {.hi = std::int32_t(bits >> 32), .lo = std::uint32_t(bits)};
}

std::chrono::milliseconds fromWire(const xcb_sync_int64_t &time)
{
    return std::chrono::milliseconds(std::int64_t(time.hi) * (std::int64_t(1) << 32) + time.lo);
}

std::string_view nameOf(const xcb_sync_systemcounter_t &counter)
{
    // Not by xcb_sync_systemcounter_name: it takes the name to begin after the padding of the C structure, two bytes
    // late.
    constexpr std::size_t fixedBytes = offsetof(xcb_sync_systemcounter_t, name_len) + sizeof counter.name_len;
    return {reinterpret_cast<const char *>(&counter) + fixedBytes, counter.name_len};
}

} // namespace

X11PointerWatch::X11PointerWatch(std::shared_ptr<X11Connection> connection, std::chrono::milliseconds rest)
    : m_connection(std::move(connection)), m_events(m_connection, [this](const auto &event) { handle(event); })
{
    findCounter();
    if (m_idleTime != XCB_NONE)
        start(rest);
}

X11PointerWatch::~X11PointerWatch()
{
    if (m_idleTime == XCB_NONE)
        return;
    xcb_sync_destroy_alarm(m_connection->get(), m_restBegins);
    xcb_sync_destroy_alarm(m_connection->get(), m_restEnds);
    xcb_flush(m_connection->get());
}

void X11PointerWatch::findCounter()
{
    const auto firstEvent = m_connection->firstEventOf(xcb_sync_id);
    if (!firstEvent)
        return;
    m_alarmEvent = std::uint8_t(*firstEvent + XCB_SYNC_ALARM_NOTIFY);
    // The first question also opens the extension: whoever has not told its version is refused.
    const auto opened = xcb_sync_initialize(m_connection->get(), 3, 1);
    const auto asked = xcb_sync_list_system_counters(m_connection->get());
    const auto version = m_connection->reply<xcb_sync_initialize_reply>(opened);
    const auto counters = m_connection->reply<xcb_sync_list_system_counters_reply>(asked);
    if (!version || !counters)
        return;
    for (auto it = xcb_sync_list_system_counters_counters_iterator(counters.get()); it.rem > 0;
         xcb_sync_systemcounter_next(&it)) {
        if (nameOf(*it.data) == "IDLETIME")
            m_idleTime = it.data->counter;
    }
}

/// The question comes first: the server keeps its answer as the value from which it tells a transition. It also keeps
/// the one at which the first alarm went off, often the very limit, and from a limit itself nothing falls below it: so
/// the second one has a lower limit.
void X11PointerWatch::start(std::chrono::milliseconds rest)
{
    const auto asked = xcb_sync_query_counter(m_connection->get(), m_idleTime);
    m_restBegins = xcb_generate_id(m_connection->get());
    m_restEnds = xcb_generate_id(m_connection->get());
    createAlarm(m_restBegins, XCB_SYNC_TESTTYPE_POSITIVE_TRANSITION, rest);
    createAlarm(m_restEnds, XCB_SYNC_TESTTYPE_NEGATIVE_TRANSITION, rest / 2);
    const auto idle = m_connection->reply<xcb_sync_query_counter_reply>(asked);
    m_isResting = idle && fromWire(idle->counter_value) > rest;
}

/// With no step from one value to the next an alarm for a transition stays set, and goes off each time.
void X11PointerWatch::createAlarm(xcb_sync_alarm_t alarm, xcb_sync_testtype_t test,
                                  std::chrono::milliseconds rest) const
{
    xcb_sync_create_alarm_value_list_t values{};
    values.counter = m_idleTime;
    values.valueType = XCB_SYNC_VALUETYPE_ABSOLUTE;
    values.value = toWire(rest);
    values.testType = test;
    values.events = 1;
    constexpr std::uint32_t given = XCB_SYNC_CA_COUNTER | XCB_SYNC_CA_VALUE_TYPE | XCB_SYNC_CA_VALUE |
                                    XCB_SYNC_CA_TEST_TYPE | XCB_SYNC_CA_DELTA | XCB_SYNC_CA_EVENTS;
    xcb_sync_create_alarm_aux(m_connection->get(), alarm, given, &values);
}

void X11PointerWatch::handle(const xcb_generic_event_t &event)
{
    if (m_idleTime == XCB_NONE || typeOf(event) != m_alarmEvent)
        return;
    const auto alarm = reinterpret_cast<const xcb_sync_alarm_notify_event_t &>(event).alarm;
    if (alarm == m_restBegins) {
        m_isResting = true;
    } else if (alarm == m_restEnds) {
        m_isResting = false;
        m_hasStayed = false;
    }
}

} // namespace ostrel
