#pragma once

#include <QByteArray>

#include <chrono>
#include <functional>
#include <memory>

namespace ostrel {

class WaylandConnection;

/// Whether a Wayland compositor, any of them, still answers its clients: for those who get its pictures by other ways
/// and can't tell one that hangs from a screen that stays still. A locked or blanked session answers as any other. Has
/// a connection of its own, on which nothing but this is asked. One thread at a time.
class WaylandPulse
{
public:
    /// How long it may take to answer before it counts as silent.
    static constexpr std::chrono::seconds patience{5};

    /// @param display       as in $WAYLAND_DISPLAY; empty means that $WAYLAND_DISPLAY decides
    /// @param monotonicTime only ever goes on, from any beginning
    explicit WaylandPulse(QByteArray display, std::function<std::chrono::milliseconds()> monotonicTime);
    WaylandPulse(const WaylandPulse &) = delete;
    WaylandPulse &operator=(const WaylandPulse &) = delete;
    ~WaylandPulse();

    /// Whether no earlier question has waited for longer than the patience; asks the next one once that is answered.
    /// Waits for nothing. Where there is no compositor to ask, nothing is known against it.
    bool isAnswering();

private:
    struct Question;
    void ask();

    const QByteArray m_display;
    const std::function<std::chrono::milliseconds()> m_monotonicTime;
    std::shared_ptr<WaylandConnection> m_connection;
    std::unique_ptr<Question> m_question; ///< null when it is answered
    std::chrono::milliseconds m_askedAt{};
};

} // namespace ostrel
