#include "platform/wlroots/WaylandPulse.h"

#include "platform/wlroots/WaylandConnection.h"
#include "platform/wlroots/WaylandHandles.h"

#include <utility>

namespace ostrel {

struct WaylandPulse::Question {
    WaylandHandle<wl_callback> callback;
};

WaylandPulse::WaylandPulse(QByteArray display, std::function<std::chrono::milliseconds()> monotonicTime)
    : m_display(std::move(display)), m_monotonicTime(std::move(monotonicTime))
{}

WaylandPulse::~WaylandPulse() = default;

bool WaylandPulse::isAnswering()
{
    if (m_connection)
        m_connection->dispatchEvents();
    if (!m_connection || m_connection->isBroken()) {
        m_question.reset();
        m_connection = WaylandConnection::open(m_display).value_or(nullptr);
    }
    if (!m_connection)
        return true;
    if (!m_question)
        ask();
    return m_monotonicTime() - m_askedAt < patience;
}

void WaylandPulse::ask()
{
    static constexpr wl_callback_listener listener{.done = [](void *self, wl_callback *, std::uint32_t) {
        static_cast<WaylandPulse *>(self)->m_question.reset();
    }};
    m_question = std::make_unique<Question>(WaylandHandle<wl_callback>(wl_display_sync(m_connection->get())));
    if (m_question->callback)
        wl_callback_add_listener(m_question->callback.get(), &listener, this);
    m_askedAt = m_monotonicTime();
    m_connection->dispatchEvents(); // sends it
}

} // namespace ostrel
