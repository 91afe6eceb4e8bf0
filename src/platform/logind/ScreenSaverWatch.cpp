#include "platform/logind/ScreenSaverWatch.h"

#include <array>

namespace ostrel {

namespace {

struct ScreenSaver {
    LockState::Voice voice;
    const char *name; ///< of service and interface
    const char *path;
};

constexpr std::array screenSavers{
    ScreenSaver{LockState::Voice::ScreenSaver, "org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver"},
    ScreenSaver{LockState::Voice::GnomeScreenSaver, "org.gnome.ScreenSaver", "/org/gnome/ScreenSaver"}};

/// One that does not answer is not active.
bool isActive(const BusLine &line, const ScreenSaver &saver)
{
    GlibHandle<GError> error;
    const auto answer = callBus(line, {saver.name, saver.path, saver.name, "GetActive"}, nullptr, "(b)", error);
    if (!answer)
        return false;
    return flagIn(GlibHandle<GVariant>(g_variant_get_child_value(answer.get(), 0)).get()).value_or(false);
}

} // namespace

void ScreenSaverWatch::visit(const BusLine &line, BusLoop & /*loop*/)
{
    m_signals = std::make_unique<BusSignals>(line.connection);
    for (const ScreenSaver &saver : screenSavers) {
        const auto tell = [this, voice = saver.voice](bool isLocked) {
            m_tell(News::Lock{.voice = voice, .isLocked = isLocked});
        };
        // One that ends takes its lock with it.
        m_signals->listenToOwner(saver.name, [=](bool isThere) { tell(isThere && isActive(line, saver)); });
        // From any path: some desktops have it on two, and tell from one of them.
        m_signals->listen(
            {.sender = saver.name, .path = nullptr, .interface = saver.name, .name = "ActiveChanged", .type = "(b)"},
            [tell](GVariant *arguments) {
                tell(flagIn(GlibHandle<GVariant>(g_variant_get_child_value(arguments, 0)).get()).value_or(false));
            });
        tell(isActive(line, saver));
    }
}

void ScreenSaverWatch::leave()
{
    m_signals.reset();
    for (const ScreenSaver &saver : screenSavers)
        m_tell(News::Lock{.voice = saver.voice, .isLocked = false});
}

} // namespace ostrel
