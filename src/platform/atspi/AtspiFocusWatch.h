#pragma once

#include "platform/atspi/AtspiQueries.h"

#include <optional>

namespace ostrel {

/// Whether the focus came to an object or left it, by the word of its program. One object at a time.
///
/// Of the events that a program sends the bus passes on those of this object only: on a connection that nobody reads,
/// as while nothing is recorded, next to nothing gathers.
class AtspiFocusWatch
{
public:
    explicit AtspiFocusWatch(AtspiBus &bus) : m_bus(bus) {}

    /// Watches this object and no other one any more. Waits for nothing: it takes effect with the next question.
    void watch(const AtspiReference &object);
    bool isWatching(const AtspiReference &object) const;
    /// Watches nothing any more, from now on.
    void end();
    /// A number that is another one whenever the focus of the watched object has changed since.
    quint64 changes() const { return m_bus.signalCount(); }

private:
    void forgetOtherBus();
    void askForEvents();
    void tellBus(const char *method, const AtspiReference &object);

    AtspiBus &m_bus;
    std::optional<AtspiReference> m_object;
    bool m_askedForEvents = false;
    int m_generation = -1;
};

} // namespace ostrel
